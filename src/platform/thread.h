// Detached worker threads. The library never joins its workers: they end by
// themselves once they see their stop flags.
#pragma once

#include <cstdint>

namespace scopemount::platform {

// Priorities in the platform's numbering: lower is more urgent.
enum class ThreadPriority : int {
  Highest = 1,
  AboveNormal = 2,
  Normal = 3,
};

using ThreadEntry = uint32_t (*)(void* parameter);
// An entry that also gets a number chosen by its starter (a request it
// serves), handed over with the thread so it cannot be confused with a
// later one.
using TicketedEntry = uint32_t (*)(void* parameter, uint32_t ticket);

// Starts entry(parameter) on a new detached thread; the priority is applied
// on a best-effort basis (a refusal by the system is not an error). Returns
// false if no thread could be started.
bool StartThread(ThreadEntry entry, void* parameter, ThreadPriority priority);
bool StartThread(TicketedEntry entry, void* parameter, uint32_t ticket, ThreadPriority priority);

}  // namespace scopemount::platform
