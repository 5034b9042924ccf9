#include "mount/motion_workers.h"

#include <cmath>

#include "celestial/angles.h"
#include "mount/backlash_take_up.h"
#include "mount/worker_hand_over.h"
#include "platform/clock.h"

namespace scopemount {

namespace {

// A positive move longer than this many approach margins stops the margin
// short of the target; the next pass covers the rest slowly.
constexpr double APPROACH_MARGIN_FACTOR = 1.2;
// A half-turn-limited move of axis 1 stays this far inside half a turn.
constexpr double HALF_TURN_RESERVE = 0.017453292519943295;  // 1 degree
// The passes do not time out while an axis reports slewing, but a status
// that cannot be read this many polls in a row (about 2 s of polls, each
// read already waiting out the link's own time-out) ends the slew as a
// failed hardware call: the cached bits would otherwise say "slewing"
// forever and the worker would never end by itself.
constexpr int STATUS_READ_FAILURE_LIMIT = 10;
// The two kinds of slew, for handing an unserved request to a worker that
// can serve it.
constexpr uint32_t EQUATORIAL_SLEW = 0;
constexpr uint32_t AXIS_TARGET_SLEW = 1;
constexpr uint32_t NO_SLEW = 0;

// True when the worker must give up the axes: a run flag was cleared
// (StopAxis), another worker wants the axes, or the mount is being released.
bool MustGiveUp(const Mount& mount) {
  return mount.axisRunFlag[0] == 0 || mount.axisRunFlag[1] == 0 || mount.abortRequest == 1 ||
         mount.releasing == 1;
}

// The angle to command for one axis standing at `current` so that the last
// approach to `target` is a short positive move: negative moves go past the
// target by approachOvershoot, long positive ones stop approachMargin short.
double ApproachAngle(const Mount& mount, double target, double current) {
  const double distance = target - current;
  if (distance < 0.0) return target - mount.approachOvershoot;
  const double margin = mount.approachMargin;
  if (distance > APPROACH_MARGIN_FACTOR * margin) return target - margin;
  return target;
}

// Axis 1 of an equatorial mount whose cabling allows less than half a turn
// per move goes half a turn less one degree in the right direction instead.
double SecondAxisAngle(const Mount& mount, double target, double current) {
  const double distance = target - current;
  if (mount.isEquatorial == 1 && mount.limitSecondAxisTravel == 1 && std::fabs(distance) > PI) {
    return distance > PI ? current + PI - HALF_TURN_RESERVE : current - PI + HALF_TURN_RESERVE;
  }
  return ApproachAngle(mount, target, current);
}

enum class AxesWait { Stopped, GiveUp, NoAnswer };

// Polls both status words every 200 ms until neither axis slews.
AxesWait WaitForAxes(Mount& mount) {
  int failedPolls = 0;
  for (;;) {
    const int32_t read0 = mount.ReadAxisStatus(0);
    const int32_t read1 = mount.ReadAxisStatus(1);
    const bool slewing = ((mount.axisStatus[0] | mount.axisStatus[1]) & AXIS_SLEWING) != 0;
    if (slewing) platform::Sleep(SLEW_STATUS_POLL_MS);
    if (MustGiveUp(mount)) return AxesWait::GiveUp;
    if (!slewing) return AxesWait::Stopped;
    failedPolls = (read0 != Ok || read1 != Ok) ? failedPolls + 1 : 0;
    if (failedPolls >= STATUS_READ_FAILURE_LIMIT) return AxesWait::NoAnswer;
  }
}

int32_t AbortSlew(Mount& mount) {
  mount.StopAxisMotor(0);
  mount.StopAxisMotor(1);
  return UserInterrupt;
}

// Where the equatorial slew aims: gotoTarget turned with the sky since the
// request (arrival), plus slewLeadTime more for the command, so the axes
// aim where the object will be when they get there.
class SkyTarget {
 public:
  AnglePair Arrival(Mount& mount) {
    const uint32_t elapsedMs = platform::TickCount() - mount.gotoStartTick;
    sky_ = {mount.gotoTarget[0] + static_cast<double>(elapsedMs) / 1000.0 * SIDEREAL_RATE,
            mount.gotoTarget[1]};
    return AxesOf(mount);
  }
  AnglePair Command(Mount& mount) {
    sky_.lon += mount.slewLeadTime * SIDEREAL_RATE;
    return AxesOf(mount);
  }
  // The sky target is read afresh on every pass.
  void Renew(const Mount&) {}

 private:
  AnglePair AxesOf(Mount& mount) {
    AnglePair axes;
    mount.SkyToAxes(&sky_, &axes, 1);
    return axes;
  }
  AnglePair sky_;
};

// Fixed axis angles, read once before the first pass (and again when the
// slew takes over a newer request).
class AxesTarget {
 public:
  explicit AxesTarget(const Mount& mount) { Renew(mount); }
  AnglePair Arrival(Mount&) const { return axes_; }
  AnglePair Command(Mount&) const { return axes_; }
  void Renew(const Mount& mount) { axes_ = {mount.axisTarget[0], mount.axisTarget[1]}; }

 private:
  AnglePair axes_;
};

// A slew request whose worker could not take the axes within its wait
// (the holder was deep in a hardware call): the holder serves it instead
// when it sees it, so its target is not lost.
void LeaveUnserved(Mount& mount, uint32_t request, uint32_t kind) {
  mount.unservedSlewKind = kind;
  mount.unservedSlew = request;
}

// The slew serving *request goes on when that is still the latest request,
// or takes over a newer unserved slew of its kind (re-reading the target);
// false when it must stop for a newer request.
template <typename Target>
bool StillServing(Mount& mount, Target& target, uint32_t* request, uint32_t kind) {
  if (mount.IsLatestOnBothAxes(*request)) return true;
  uint32_t unserved = mount.unservedSlew;
  if (unserved == NO_SLEW || mount.unservedSlewKind != kind ||
      !mount.IsLatestOnBothAxes(unserved) ||
      !mount.unservedSlew.compare_exchange_strong(unserved, NO_SLEW)) {
    return false;
  }
  *request = unserved;
  target.Renew(mount);
  mount.ReclaimRunFlag(unserved, 0);
  mount.ReclaimRunFlag(unserved, 1);
  return true;
}

// Up to six passes: measure, stop if within gotoTolerance, else command
// both axes by the approach rules and wait until they stand. Ok on arrival
// or after the sixth pass; UserInterrupt when told to give up;
// NoResponseAxis1 when a command (or every status read) fails.
template <typename Target>
int32_t RunSlewPasses(Mount& mount, Target& target, uint32_t* request, uint32_t kind) {
  for (int pass = SLEW_PASS_COUNT; pass > 0; --pass) {
    if (mount.releasing == 1 || !StillServing(mount, target, request, kind)) {
      return AbortSlew(mount);
    }
    mount.slewActive = 1;
    mount.trackingWanted = 0;
    const AnglePair arrival = target.Arrival(mount);
    double p0 = 0.0;
    double p1 = 0.0;
    mount.GetAxisPosition(0, &p0);
    mount.GetAxisPosition(1, &p1);
    const double tolerance = mount.gotoTolerance;
    if (std::fabs(AngularSeparation(p0, p1, arrival.lon, arrival.lat)) <= tolerance) break;

    const AnglePair command = target.Command(mount);
    if (std::fabs(command.lat - p1) > tolerance &&
        mount.SlewAxisTo(1, SecondAxisAngle(mount, command.lat, p1)) != Ok) {
      return NoResponseAxis1;
    }
    if (std::fabs(command.lon - p0) > tolerance &&
        mount.SlewAxisTo(0, ApproachAngle(mount, command.lon, p0)) != Ok) {
      return NoResponseAxis1;
    }
    const AxesWait waited = WaitForAxes(mount);
    if (waited == AxesWait::GiveUp) return AbortSlew(mount);
    if (waited == AxesWait::NoAnswer) return NoResponseAxis1;
    if (mount.abortRequest == 1) return AbortSlew(mount);
  }
  // The last approach of each axis was positive (or the axes stood already).
  mount.axisDirection[0] = 1;
  mount.axisDirection[1] = 1;
  return Ok;
}

// Ends every slew that got the axes: frees the run flags of the axes no
// newer request has taken (a newer GOTO or move relies on its own), shows
// the mount idle and gives the axes back. Idle comes first: whoever waited
// for the axes (a stop, a newer slew) then never sees this slew as still
// running.
void FinishSlew(Mount& mount, uint32_t request) {
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    if (mount.IsLatestRequest(request, axis)) mount.axisRunFlag[axis] = 0;
  }
  mount.slewActive = 0;
  mount.mountState = STATE_IDLE;
  mount.motionNotice.Notify();
  HandBackAxes(mount);
}

// A slew that got the axes takes its run flags back (see ReclaimRunFlag).
void ReclaimSlewFlags(Mount& mount, uint32_t request) {
  mount.ReclaimRunFlag(request, 0);
  mount.ReclaimRunFlag(request, 1);
}

uint32_t EquatorialSlewWorker(void* parameter, uint32_t request) {
  Mount& mount = *static_cast<Mount*>(parameter);
  WorkerReference reference(mount);
  if (!TakeOverAxes(mount, SLEW_TAKE_OVER_WAIT_MS, TakeOver::Interrupt, BOTH_AXES, request)) {
    // A newer request's worker serves the mount; only a request still the
    // latest is left for the holder to pick up.
    if (mount.IsLatestOnBothAxes(request)) LeaveUnserved(mount, request, EQUATORIAL_SLEW);
    return AxisBusy;
  }
  ReclaimSlewFlags(mount, request);
  int32_t result = mount.PrepareSlew();
  if (result == Ok) {
    SkyTarget target;
    result = RunSlewPasses(mount, target, &request, EQUATORIAL_SLEW);
  }
  FinishSlew(mount, request);
  // Tracking only for the latest request: a GOTO issued as this one
  // arrived owns the axes now.
  if (result == Ok && mount.IsLatestOnBothAxes(request)) {
    mount.trackingWanted = 1;
    result = mount.StartTrackingAfter(request);
  }
  return static_cast<uint32_t>(result);
}

uint32_t AxisTargetSlewWorker(void* parameter, uint32_t request) {
  Mount& mount = *static_cast<Mount*>(parameter);
  WorkerReference reference(mount);
  if (!TakeOverAxes(mount, SLEW_TAKE_OVER_WAIT_MS, TakeOver::Interrupt, BOTH_AXES, request)) {
    // A newer request's worker serves the mount; only a request still the
    // latest is left for the holder to pick up.
    if (mount.IsLatestOnBothAxes(request)) LeaveUnserved(mount, request, AXIS_TARGET_SLEW);
    return AxisBusy;
  }
  ReclaimSlewFlags(mount, request);
  int32_t result = mount.PrepareSlew();
  if (result == Ok) {
    AxesTarget target(mount);
    result = RunSlewPasses(mount, target, &request, AXIS_TARGET_SLEW);
  }
  FinishSlew(mount, request);
  return static_cast<uint32_t>(result);
}

// The axis is the thread function's template argument, so starting a
// manual motion needs nothing but the mount as parameter.
template <uint32_t axis>
uint32_t AxisMotionWorker(void* parameter, uint32_t request) {
  Mount& mount = *static_cast<Mount*>(parameter);
  WorkerReference reference(mount);
  if (!TakeOverAxes(mount, AXIS_MOTION_TAKE_OVER_WAIT_MS, TakeOver::Interrupt, AxisBit(axis),
                    request)) {
    return AxisBusy;
  }
  // Still wanted: the run flag set (a stop clears it) and no newer request
  // on the axis (its own worker comes next and does its own motion).
  const auto wanted = [&mount, request] {
    return mount.axisRunFlag[axis] == 1 && mount.IsLatestRequest(request, axis) &&
           mount.releasing == 0;
  };
  mount.ReclaimRunFlag(request, axis);
  const double rate = mount.axisRate[axis];
  int32_t result = Ok;
  if (wanted() && NeedsBacklashTakeUp(mount, axis, rate)) {
    result = mount.SetAxisRate(axis, BacklashTakeUpRate(mount, rate));
    if (result != Ok) {
      HandBackAxes(mount);
      return static_cast<uint32_t>(result);
    }
    WaitOutTakeUp(mount, mount.backlashTime[axis], [&wanted] { return !wanted(); });
    mount.StopAxisMotor(axis);
  }
  result = wanted() ? mount.SetAxisRate(axis, rate) : mount.StopAxisMotor(axis);
  HandBackAxes(mount);
  return static_cast<uint32_t>(result);
}

void ReleaseRunFlags(Mount& mount) {
  mount.axisRunFlag[0] = 0;
  mount.axisRunFlag[1] = 0;
}

}  // namespace

int32_t StartEquatorialSlew(Mount& mount, uint32_t request) {
  if (!mount.StartWorker(&EquatorialSlewWorker, &mount, request,
                         platform::ThreadPriority::AboveNormal)) {
    ReleaseRunFlags(mount);
  }
  return Ok;
}

int32_t StartAxisTargetSlew(Mount& mount, double angle0, double angle1) {
  if (!std::isfinite(angle0) || !std::isfinite(angle1)) return InvalidParameter;
  const uint32_t request = mount.NewRequest(true, true);
  mount.axisTarget[0] = angle0;
  mount.axisTarget[1] = angle1;
  mount.axisRunFlag[0] = 1;
  mount.axisRunFlag[1] = 1;
  mount.trackingWanted = 0;
  mount.ClearTrackingBit();
  mount.HaltTrackingLoopIfActive();
  if (!mount.StartWorker(&AxisTargetSlewWorker, &mount, request,
                         platform::ThreadPriority::AboveNormal)) {
    ReleaseRunFlags(mount);
  }
  return Ok;
}

int32_t StartAxisMotion(Mount& mount, uint32_t axis, uint32_t request) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  const platform::TicketedEntry entry =
      axis == 0 ? &AxisMotionWorker<0> : &AxisMotionWorker<1>;
  if (!mount.StartWorker(entry, &mount, request, platform::ThreadPriority::Normal)) {
    mount.axisRunFlag[axis] = 0;
  }
  return Ok;
}

}  // namespace scopemount
