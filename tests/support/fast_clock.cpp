#include "support/fast_clock.h"

#include <mutex>
#include <vector>

namespace scopemount::testing {

namespace {

// Every fast clock made stays reachable here for the life of the process
// (the list itself is never destroyed, not even at exit).
std::mutex clocksMutex;
std::vector<platform::ScaledClock*>* const clocks = new std::vector<platform::ScaledClock*>;

}  // namespace

ScopedFastClock::ScopedFastClock(double speed, uint64_t startMs)
    : clock_(new platform::ScaledClock(speed, startMs)) {
  {
    std::lock_guard lock(clocksMutex);
    clocks->push_back(clock_);
  }
  platform::UseClock(clock_);
}

ScopedFastClock::~ScopedFastClock() { platform::UseClock(nullptr); }

}  // namespace scopemount::testing
