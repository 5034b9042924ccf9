#include "platform/event.h"

namespace scopemount::platform {

Event::Event(bool manualReset, bool initiallySignalled)
    : manualReset_(manualReset), signalled_(initiallySignalled) {}

void Event::Set() {
  // Notify under the lock: a waiter that wakes may destroy the event (a
  // mount freed after its workers signalled), so nothing may touch it after
  // the lock is released.
  std::lock_guard lock(mutex_);
  signalled_ = true;
  if (manualReset_) {
    changed_.notify_all();
  } else {
    changed_.notify_one();
  }
}

void Event::Reset() {
  std::lock_guard lock(mutex_);
  signalled_ = false;
}

bool Event::IsSignalled() const {
  std::lock_guard lock(mutex_);
  return signalled_;
}

WaitResult Event::Wait(uint32_t timeoutMs) {
  std::unique_lock lock(mutex_);
  const auto isSignalled = [this] { return signalled_; };
  if (timeoutMs == WAIT_FOREVER) {
    changed_.wait(lock, isSignalled);
  } else if (!changed_.wait_until(lock, ActiveClock().RealDeadlineAfter(timeoutMs), isSignalled)) {
    return WaitResult::TimedOut;
  }
  if (!manualReset_) signalled_ = false;
  return WaitResult::Signalled;
}

}  // namespace scopemount::platform
