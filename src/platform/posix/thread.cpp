#include "platform/thread.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <system_error>
#include <thread>

namespace scopemount::platform {

namespace {

// Nice values stand in for the platform's priority classes.
int NiceValueOf(ThreadPriority priority) {
  switch (priority) {
    case ThreadPriority::Highest:
      return -10;
    case ThreadPriority::AboveNormal:
      return -5;
    case ThreadPriority::Normal:
      break;
  }
  return 0;
}

void ApplyPriority(ThreadPriority priority) {
  const int nice = NiceValueOf(priority);
  if (nice == 0) return;
  const auto tid = static_cast<id_t>(syscall(SYS_gettid));
  // Raising a priority needs privileges that a user process rarely has; the
  // worker runs at the default priority then.
  (void)setpriority(PRIO_PROCESS, tid, nice);
}

}  // namespace

bool StartThread(ThreadEntry entry, void* parameter, ThreadPriority priority) {
  try {
    std::thread([entry, parameter, priority] {
      ApplyPriority(priority);
      entry(parameter);
    }).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

bool StartThread(TicketedEntry entry, void* parameter, uint32_t ticket, ThreadPriority priority) {
  try {
    std::thread([entry, parameter, ticket, priority] {
      ApplyPriority(priority);
      entry(parameter, ticket);
    }).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace scopemount::platform
