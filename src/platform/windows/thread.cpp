// Detached worker threads on Windows: CreateThread, started suspended so the
// priority is in place before the worker's first instruction.
#include <windows.h>

#include <new>

#include "platform/thread.h"

namespace scopemount::platform {

namespace {

int PriorityOf(ThreadPriority priority) {
  switch (priority) {
    case ThreadPriority::Highest:
      return THREAD_PRIORITY_HIGHEST;
    case ThreadPriority::AboveNormal:
      return THREAD_PRIORITY_ABOVE_NORMAL;
    case ThreadPriority::Normal:
      break;
  }
  return THREAD_PRIORITY_NORMAL;
}

// What the new thread runs; it frees this before calling the entry.
struct ThreadStart {
  ThreadEntry entry = nullptr;
  TicketedEntry ticketed = nullptr;
  void* parameter = nullptr;
  uint32_t ticket = 0;
};

DWORD WINAPI RunThreadStart(LPVOID raw) {
  const ThreadStart start = *static_cast<ThreadStart*>(raw);
  delete static_cast<ThreadStart*>(raw);
  return start.ticketed != nullptr ? start.ticketed(start.parameter, start.ticket)
                                   : start.entry(start.parameter);
}

bool Start(const ThreadStart& what, ThreadPriority priority) {
  auto* start = new (std::nothrow) ThreadStart(what);
  if (start == nullptr) return false;
  HANDLE thread = CreateThread(nullptr, 0, RunThreadStart, start, CREATE_SUSPENDED, nullptr);
  if (thread == nullptr) {
    delete start;
    return false;
  }
  // A refused priority is not an error: the worker runs at the default.
  SetThreadPriority(thread, PriorityOf(priority));
  ResumeThread(thread);
  CloseHandle(thread);  // detached: nobody waits for it
  return true;
}

}  // namespace

bool StartThread(ThreadEntry entry, void* parameter, ThreadPriority priority) {
  ThreadStart start;
  start.entry = entry;
  start.parameter = parameter;
  return Start(start, priority);
}

bool StartThread(TicketedEntry entry, void* parameter, uint32_t ticket, ThreadPriority priority) {
  ThreadStart start;
  start.ticketed = entry;
  start.parameter = parameter;
  start.ticket = ticket;
  return Start(start, priority);
}

}  // namespace scopemount::platform
