// A signalled/unsignalled event with manual or automatic reset and a timed
// wait on the active clock: the hand-over primitive of the worker threads.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "platform/clock.h"

namespace scopemount::platform {

enum class WaitResult { Signalled, TimedOut };

class Event {
 public:
  Event(bool manualReset, bool initiallySignalled);
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  void Set();
  void Reset();
  // Waits until signalled or until `timeoutMs` of the active clock have
  // passed (WAIT_FOREVER waits without limit). An automatic-reset event is
  // unsignalled again for the next waiter once one wait has seen it.
  WaitResult Wait(uint32_t timeoutMs);
  bool IsSignalled() const;

 private:
  const bool manualReset_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool signalled_;
};

}  // namespace scopemount::platform
