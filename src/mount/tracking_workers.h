// Tracking: keeping the telescope on a star as the sky turns.
//
// An equatorial mount only runs axis 0 at trackingRate: a short-lived worker
// takes up backlash if needed, anchors the tracked position and sets the
// rate; the hardware keeps it. An Alt/Az mount needs both axis rates to
// change all the time: a long-lived loop recomputes them every 30 s when the
// mount is aligned (aiming at where the star will be 30 s later), or every
// 10 s from the closed-form rates when it is not.
//
// The geometry layers call these: the equatorial layer's StartTracking is
// StartEquatorialTracking; the Alt/Az layer holds an AltAzTracking and
// forwards StartTracking to Start and its halts to Halt.
#pragma once

#include <atomic>
#include <cstdint>

#include "mount/mount.h"
#include "platform/event.h"

namespace scopemount {

// Look-ahead and period of the aligned Alt/Az loop, and the period of the
// unaligned one.
inline constexpr uint32_t ALIGNED_TRACKING_PERIOD_MS = 30000;
inline constexpr uint32_t UNALIGNED_TRACKING_PERIOD_MS = 10000;
// How long a halt waits for the Alt/Az loop to end.
inline constexpr uint32_t TRACKING_HALT_WAIT_MS = 3000;

// A tracking start asked for by the host rather than by a finishing slew.
inline constexpr uint32_t NO_REQUEST = 0;

// Starts the equatorial tracking worker at normal priority; Ok. It serves
// `request` (a finishing slew's, or by default the latest on axis 0) and
// gives up, ending a take-up at once, when a newer GOTO, move or stop
// comes for axis 0.
int32_t StartEquatorialTracking(Mount& mount);
int32_t StartEquatorialTracking(Mount& mount, uint32_t request);

struct AxisRates {
  double axis0 = 0.0;
  double axis1 = 0.0;
};

// Rates that keep an unaligned Alt/Az mount on the sky at the given axis
// angles (azimuth from north toward east, altitude) and latitude.
AxisRates AltAzClosedFormRates(double latitude, double azimuth, double altitude);

// The Alt/Az tracking loop with its starter, wake and idle events. Lives
// inside the mount it serves (constructed with it) and is halted when the
// mount is released.
class AltAzTracking {
 public:
  explicit AltAzTracking(Mount& mount);
  AltAzTracking(const AltAzTracking&) = delete;
  AltAzTracking& operator=(const AltAzTracking&) = delete;

  // The Alt/Az StartTracking: starts the starter thread at the highest
  // priority, which anchors the current position and creates or wakes the
  // loop. Ok, also when no thread could be started. A start for a slew's
  // `request` is cancelled when a newer request comes before it takes hold;
  // any start is cancelled by a halt that comes before it takes hold.
  int32_t Start(uint32_t request = NO_REQUEST);
  // Clears the tracking bit, wakes the loop and waits at most 3000 ms for it
  // to end.
  void Halt();
  // True while a loop thread runs.
  bool IsRunning() const { return loopRunning_ == 1; }
  // True also from a start until its starter thread has ended: a halt then
  // has something to cancel, also while the starter anchors.
  bool IsStartingOrRunning() const {
    return loopRunning_ == 1 || startsRequested_ != startersDone_;
  }

  // One cycle of the loop: compute both rates, take up backlash where a
  // rate reverses an axis, command the rates. Ok, or the code of a failed
  // take-up command (which ends the loop).
  int32_t RunCycle();

 private:
  static uint32_t Starter(void* parameter, uint32_t request);
  // The starter with `ticket` (its place among starts) for `request` must
  // not start tracking: the mount goes, a halt came after it was asked for
  // or is under way, or a newer motion request came.
  bool StartCancelled(uint32_t ticket, uint32_t request) const;
  static uint32_t Loop(void* parameter);

  void Anchor();
  // Axis angles of the tracked position `aheadMs` after now.
  AnglePair TrackedAxes(uint32_t aheadMs);
  // False when this cycle is to be skipped (a position read failed, or the
  // mount stays far from the tracked position even after re-anchoring).
  bool AlignedRates(AxisRates* rates);
  AxisRates UnalignedRates();
  int32_t TakeUpBacklash(const AxisRates& rates);
  void SignalIdleUnlessRunning();

  Mount& mount_;
  platform::Event wake_{/*manualReset=*/false, /*initiallySignalled=*/false};
  platform::Event idle_{/*manualReset=*/true, /*initiallySignalled=*/true};
  std::atomic<uint32_t> loopRunning_{0};
  // A halt cancels the starts requested before it whose starter has not
  // run yet: the n-th starter to run gives up when a halt came after n
  // requests.
  std::atomic<uint32_t> startsRequested_{0};
  std::atomic<uint32_t> startersRun_{0};
  // Starters that have ended; a loop they started is running by then.
  std::atomic<uint32_t> startersDone_{0};
  std::atomic<uint32_t> haltedAfter_{0};
  // Halts waiting for the loop right now: a starter that runs meanwhile
  // (from a slew finishing on another thread) gives up, so the halt never
  // waits out its time for a loop started behind its back.
  std::atomic<uint32_t> haltsInProgress_{0};
};

}  // namespace scopemount
