#include "mount/tracking_workers.h"

#include <cmath>

#include "celestial/angles.h"
#include "mount/backlash_take_up.h"
#include "mount/worker_hand_over.h"
#include "platform/clock.h"

namespace scopemount {

namespace {

// The equatorial tracking worker waits this long for a running motion.
constexpr uint32_t TRACKING_TAKE_OVER_WAIT_MS = 5000;
// An axis farther than this from the tracked position re-anchors tracking
// where the mount now points (after a manual move, say).
constexpr double RE_ANCHOR_DISTANCE = 0.05235987755982988;  // 3 degrees
// An axis-0 difference within this of a full turn crossed the +-pi seam.
constexpr double WRAP_BAND = 0.08726646259971647;  // 5 degrees
// A correction against the nominal direction is replaced by this share of
// the nominal rate: an axis never reverses while tracking.
constexpr double REVERSAL_DAMPING = 0.75;
// A re-command after a take-up that keeps failing is given up after this
// many attempts in one cycle; the cycle's own rate command tries again.
constexpr int TAKE_UP_RETRY_LIMIT = 3;

double MsToSeconds(uint32_t ms) { return static_cast<double>(ms) / 1000.0; }

// Removes a full turn from a difference that crossed the +-pi seam.
double AcrossSeam(double difference) {
  if (std::fabs(std::fabs(difference) - TWO_PI) < WRAP_BAND) {
    return difference > 0.0 ? difference - TWO_PI : difference + TWO_PI;
  }
  return difference;
}

// The correcting rate, unless it would reverse the axis against its
// nominal rate. Both come as angle differences over one period and only
// the chosen one is scaled by `perMs` into a rate: the same value as
// scaling both first, since the scale is positive (and no difference of
// two axis angles is small enough to vanish when scaled). A NaN nominal
// never counts as a reversal.
double WithoutReversal(double nominal, double correcting, double perMs) {
  const bool reverses = nominal >= 0.0 ? correcting < 0.0 : nominal < 0.0 && correcting >= 0.0;
  return reverses ? REVERSAL_DAMPING * (nominal * perMs) : correcting * perMs;
}

bool TrackingBitSet(const Mount& mount) { return (mount.mountState & STATE_TRACKING) != 0; }

// Tracking was turned off after the latest start was asked for.
bool TrackingStopped(const Mount& mount) {
  return mount.trackingStops != mount.trackingStopsAtStart;
}

// A tracking start for `request` (NO_REQUEST: asked for by the host, not
// by a slew) that a newer GOTO, move or stop has made stale.
bool Superseded(const Mount& mount, uint32_t request) {
  return request != NO_REQUEST && !mount.IsLatestOnBothAxes(request);
}

uint32_t EquatorialTrackingWorker(void* parameter, uint32_t request) {
  Mount& mount = *static_cast<Mount*>(parameter);
  WorkerReference reference(mount);
  // A running motion is allowed to finish: no abort request.
  if (!TakeOverAxes(mount, TRACKING_TAKE_OVER_WAIT_MS, TakeOver::WaitForFinish, AxisBit(0),
                    request)) {
    return AxisBusy;
  }
  const double rate = mount.trackingRate;
  int32_t result = Ok;
  // A motion owns the axis, a newer request came for it (a stop), tracking
  // was turned off, or the mount goes away: tracking does not start.
  const auto calledOff = [&mount, request] {
    return mount.axisRunFlag[0] == 1 || mount.releasing == 1 ||
           !mount.IsLatestRequest(request, 0) || TrackingStopped(mount);
  };
  if (NeedsBacklashTakeUp(mount, 0, rate)) {
    result = mount.SetAxisRate(0, BacklashTakeUpRate(mount, rate));
    if (result != Ok) {
      HandBackAxes(mount);
      return static_cast<uint32_t>(result);
    }
    WaitOutTakeUp(mount, mount.backlashTime[0], calledOff);
    result = mount.StopAxisMotor(0);
  }
  if (calledOff()) {
    HandBackAxes(mount);
    return static_cast<uint32_t>(result);
  }
  AnglePair sky;
  mount.GetSkyPosition(&sky);
  mount.trackStartSky[0] = sky.lon;
  mount.trackStartSky[1] = sky.lat;
  mount.trackStartTick = platform::TickCount();
  result = mount.SetAxisRate(0, rate);
  if (result == Ok) mount.mountState |= STATE_TRACKING;
  // A StopTracking between the check above and the bit saw no tracking to
  // stop: this start undoes itself (without counting as another stop).
  if (result == Ok && TrackingStopped(mount)) {
    mount.StopAxisMotor(0);
    mount.ClearTrackingBit();
  }
  HandBackAxes(mount);
  return static_cast<uint32_t>(result);
}

}  // namespace

int32_t StartEquatorialTracking(Mount& mount) {
  return StartEquatorialTracking(mount, mount.axisRequest[0]);
}

int32_t StartEquatorialTracking(Mount& mount, uint32_t request) {
  mount.trackingStopsAtStart = mount.trackingStops.load();
  mount.StartWorker(&EquatorialTrackingWorker, &mount, request, platform::ThreadPriority::Normal);
  return Ok;
}

AxisRates AltAzClosedFormRates(double latitude, double azimuth, double altitude) {
  const double sinLat = std::sin(latitude);
  const double cosLat = std::cos(latitude);
  const double cosAz = std::cos(azimuth);
  return {SIDEREAL_RATE * (sinLat - std::tan(altitude) * cosAz * cosLat),
          SIDEREAL_RATE * std::sin(azimuth) * cosLat};
}

AltAzTracking::AltAzTracking(Mount& mount) : mount_(mount) { mount.AttachTrackingLoop(this); }

int32_t AltAzTracking::Start(uint32_t request) {
  idle_.Reset();
  ++startsRequested_;
  if (!mount_.StartWorker(&Starter, this, request, platform::ThreadPriority::Highest)) {
    // This request will have no starter.
    ++startersRun_;
    ++startersDone_;
    SignalIdleUnlessRunning();
  }
  return Ok;
}

void AltAzTracking::Halt() {
  ++haltsInProgress_;
  haltedAfter_ = startsRequested_.load();
  mount_.ClearTrackingBit();
  wake_.Set();
  idle_.Wait(TRACKING_HALT_WAIT_MS);
  --haltsInProgress_;
}

bool AltAzTracking::StartCancelled(uint32_t ticket, uint32_t request) const {
  return mount_.releasing == 1 || ticket <= haltedAfter_ || haltsInProgress_ != 0 ||
         Superseded(mount_, request);
}

void AltAzTracking::SignalIdleUnlessRunning() {
  if (loopRunning_ == 0) idle_.Set();
}

void AltAzTracking::Anchor() {
  AnglePair sky;
  mount_.GetSkyPosition(&sky);
  mount_.trackStartSky[0] = sky.lon;
  mount_.trackStartSky[1] = sky.lat;
  mount_.trackStartTick = platform::TickCount();
}

uint32_t AltAzTracking::Starter(void* parameter, uint32_t request) {
  AltAzTracking& tracking = *static_cast<AltAzTracking*>(parameter);
  Mount& mount = tracking.mount_;
  WorkerReference reference(mount);
  const uint32_t ticket = ++tracking.startersRun_;
  // Counted on every way out: until then a StopTracking halts, and this
  // starter gives up on seeing the halt.
  struct Done {
    std::atomic<uint32_t>& count;
    ~Done() { ++count; }
  } done{tracking.startersDone_};
  if (tracking.StartCancelled(ticket, request)) {
    tracking.SignalIdleUnlessRunning();
    return Ok;
  }
  tracking.Anchor();
  // Set also when the loop runs: a halt since its last start cleared it, and
  // a woken loop without it would end.
  mount.mountState = STATE_TRACKING;
  // A halt or a newer motion request that came between the check above and
  // the line before has already cleared the bit, or this sees it now:
  // either way it wins.
  if (tracking.StartCancelled(ticket, request)) {
    mount.ClearTrackingBit();
    tracking.SignalIdleUnlessRunning();
    return Ok;
  }
  if (tracking.loopRunning_ == 0) {
    // Marked running and idle reset before the thread exists, so a loop
    // that ends at once still leaves the event signalled.
    tracking.loopRunning_ = 1;
    tracking.idle_.Reset();
    if (!mount.StartWorker(&Loop, &tracking, platform::ThreadPriority::Normal)) {
      tracking.loopRunning_ = 0;
      mount.ClearTrackingBit();
      tracking.idle_.Set();
      return Ok;
    }
  }
  tracking.wake_.Set();
  return Ok;
}

uint32_t AltAzTracking::Loop(void* parameter) {
  AltAzTracking& tracking = *static_cast<AltAzTracking*>(parameter);
  Mount& mount = tracking.mount_;
  WorkerReference reference(mount);
  int32_t result = Ok;
  for (;;) {
    tracking.wake_.Wait(mount.aligned == 1 ? ALIGNED_TRACKING_PERIOD_MS
                                           : UNALIGNED_TRACKING_PERIOD_MS);
    if (!TrackingBitSet(mount) || mount.releasing == 1) break;
    result = tracking.RunCycle();
    if (result != Ok) break;
    // A halt during the cycle has set wake_ as well; the wait above then
    // returns at once and the loop ends.
  }
  // Also after a failed take-up command: a loop that ended without saying
  // so would make every later halt wait its full time and every later start
  // wake a thread that is gone.
  mount.ClearTrackingBit();
  tracking.loopRunning_ = 0;
  tracking.idle_.Set();
  return static_cast<uint32_t>(result);
}

int32_t AltAzTracking::RunCycle() {
  AxisRates rates;
  if (mount_.aligned == 1) {
    if (!AlignedRates(&rates)) return Ok;
  } else {
    rates = UnalignedRates();
  }
  const int32_t takenUp = TakeUpBacklash(rates);
  if (takenUp != Ok) return takenUp;
  // Halted during the cycle: a motion may own the axes already.
  if (!TrackingBitSet(mount_)) return Ok;
  // A failure only skips the rest of this cycle.
  if (mount_.SetAxisRate(0, rates.axis0) == Ok) mount_.SetAxisRate(1, rates.axis1);
  return Ok;
}

AnglePair AltAzTracking::TrackedAxes(uint32_t aheadMs) {
  const uint32_t elapsedMs = platform::TickCount() - mount_.trackStartTick + aheadMs;
  AnglePair sky{mount_.trackStartSky[0] + SIDEREAL_RATE * MsToSeconds(elapsedMs),
                mount_.trackStartSky[1]};
  AnglePair axes;
  mount_.SkyToAxes(&sky, &axes, 1);
  return axes;
}

bool AltAzTracking::AlignedRates(AxisRates* rates) {
  constexpr double perMs = 1000.0 / ALIGNED_TRACKING_PERIOD_MS;
  // One re-anchor at most: the anchor is where the mount points, so a mount
  // still far from it after that (an axis angle a full turn off the
  // conversion's range) is left alone this cycle.
  for (int anchors = 0;; ++anchors) {
    const AnglePair now = TrackedAxes(0);
    double p0 = 0.0;
    double p1 = 0.0;
    if (mount_.GetAxisPosition(0, &p0) != Ok || mount_.GetAxisPosition(1, &p1) != Ok) return false;
    if (std::fabs(AcrossSeam(p0 - now.lon)) > RE_ANCHOR_DISTANCE ||
        std::fabs(p1 - now.lat) > RE_ANCHOR_DISTANCE) {
      if (anchors > 0) return false;
      Anchor();
      continue;
    }
    const AnglePair ahead = TrackedAxes(ALIGNED_TRACKING_PERIOD_MS);
    const double nominal0 = AcrossSeam(ahead.lon - now.lon);
    const double nominal1 = ahead.lat - now.lat;
    // Each axis reaches the predicted position in one period.
    const double correcting0 = AcrossSeam(ahead.lon - p0);
    const double correcting1 = ahead.lat - p1;
    rates->axis0 = WithoutReversal(nominal0, correcting0, perMs);
    rates->axis1 = WithoutReversal(nominal1, correcting1, perMs);
    return true;
  }
}

AxisRates AltAzTracking::UnalignedRates() {
  double p0 = 0.0;
  double p1 = 0.0;
  mount_.GetAxisPosition(0, &p0);
  mount_.GetAxisPosition(1, &p1);
  return AltAzClosedFormRates(mount_.latitude, p0, p1);
}

// A take-up marker lasts one cycle: once an axis has taken up its backlash
// it is re-commanded at its rate and left alone until a rate reverses it
// again, instead of being stopped and re-anchored on every later cycle.
int32_t AltAzTracking::TakeUpBacklash(const AxisRates& rates) {
  const double rate[AXIS_COUNT] = {rates.axis0, rates.axis1};
  bool takingUp[AXIS_COUNT] = {false, false};
  uint32_t deadline[AXIS_COUNT] = {0, 0};
  int failures[AXIS_COUNT] = {0, 0};
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    if (!NeedsBacklashTakeUp(mount_, axis, rate[axis])) continue;
    const int32_t r = mount_.SetAxisRate(axis, BacklashTakeUpRate(mount_, rate[axis]));
    if (r != Ok) return r;
    deadline[axis] = platform::TickCount() + mount_.backlashTime[axis];
    takingUp[axis] = true;
  }
  if (!takingUp[0] && !takingUp[1]) return Ok;
  for (;;) {
    // Sleep until the nearer deadline, or until a halt clears the bit.
    const uint32_t next = !takingUp[0]   ? deadline[1]
                          : !takingUp[1] ? deadline[0]
                          : static_cast<int32_t>(deadline[0] - deadline[1]) < 0 ? deadline[0]
                                                                                : deadline[1];
    mount_.motionNotice.WaitUntilTick(next, [this] { return !TrackingBitSet(mount_); });
    const uint32_t now = platform::TickCount();
    for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
      if (!takingUp[axis] || static_cast<int32_t>(now - deadline[axis]) < 0) continue;
      mount_.StopAxisMotor(axis);
      if (mount_.SetAxisRate(axis, rate[axis]) == Ok || ++failures[axis] >= TAKE_UP_RETRY_LIMIT) {
        takingUp[axis] = false;
      }
    }
    if (!takingUp[0] && !takingUp[1]) break;
    if (!TrackingBitSet(mount_)) {
      mount_.StopAxisMotor(0);
      mount_.StopAxisMotor(1);
      break;
    }
  }
  Anchor();
  return Ok;
}

}  // namespace scopemount
