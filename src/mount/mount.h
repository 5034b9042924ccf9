// Mount: the one interface through which the library drives a telescope
// mount, and the state every driver shares.
//
// A concrete mount is one object: a geometry layer (Alt/Az or equatorial)
// and a hardware layer (a serial protocol or a simulated motor), both
// deriving virtually from Mount, so the object holds exactly one Mount part.
// The hardware layer provides the axis operations (read position and status,
// run at a rate, slew to an angle, stop, load a position); everything else
// here is built on them and serves every model alike.
//
// Threads: the host's thread calls the operations; motion and tracking run
// on worker threads that hand over through axisRunFlag, abortRequest,
// slewActive and workerIdleEvent. Every field that two threads touch is an
// atomic, so there is no data race and no lock on the hot paths.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "celestial/angles.h"
#include "celestial/matrix3.h"
#include "mount/mount_error.h"
#include "mount/pointing_model.h"
#include "platform/event.h"
#include "platform/notice.h"
#include "platform/thread.h"

namespace scopemount {

class AltAzTracking;

// A star as the sky has it and as the mount's axes saw it when centred.
struct StarObservation {
  AnglePair sky;   // hour angle, declination
  AnglePair axes;  // axis 0 angle, axis 1 angle
};

// Time a new worker (or the destructor) waits for the running one to give up.
inline constexpr uint32_t SLEW_TAKE_OVER_WAIT_MS = 2000;
inline constexpr uint32_t AXIS_MOTION_TAKE_OVER_WAIT_MS = 5000;

// Defaults of the shared state.
inline constexpr double DEFAULT_LATITUDE = 0.5235987755982988;  // 30 degrees
inline constexpr double DEFAULT_GUIDE_RATE = SIDEREAL_RATE / 2.0;
inline constexpr double DEFAULT_BACKLASH_RATE = 64.0 * SIDEREAL_RATE;
inline constexpr double DEFAULT_GOTO_TOLERANCE = 0.0005817764173314432;  // 1/30 degree
inline constexpr double DEFAULT_ALTITUDE_UPPER_LIMIT = 1.3089969389957472;  // 75 degrees
inline constexpr double DEFAULT_ALTITUDE_LOWER_LIMIT = 0.0;

// Ranges of the settings.
inline constexpr double MIN_ELEVATION = -1000.0;
inline constexpr double MAX_ELEVATION = 8848.0;
inline constexpr double MAX_BACKLASH = 0.03490658503988659;  // 2 degrees
inline constexpr double MIN_ALTITUDE_LOWER_LIMIT = -PI / 6.0;
inline constexpr double MIN_ALIGNMENT_STAR_ALTITUDE = 0.2617993877991494;  // 15 degrees
// A manual rate this small means "stop".
inline constexpr double MIN_MOVE_RATE = 1e-6 * SIDEREAL_RATE;

inline constexpr double LUNAR_RATE = TWO_PI / 89460.0;
inline constexpr double SOLAR_RATE = TWO_PI / 86400.0;
inline constexpr int32_t TRACKING_LUNAR = 1;
inline constexpr int32_t TRACKING_SOLAR = 2;

inline constexpr int32_t BEST_STAR_SCORE = 5;
inline constexpr uint32_t ALIGNED_QUALITY = 100;

// Lifetime. A mount is shared between its owner (the library's current
// mount, or a test) and every worker thread running on it: the owner holds
// one reference from construction, each worker one from just before its
// thread starts until its last statement. Releasing a mount is two steps:
// StopWorkersForRelease asks every worker to end within the design's waits
// (the Alt/Az tracking loop 3000 ms, a motion worker 2000 ms), then Release
// drops the owner's reference. Whoever drops the last reference deletes the
// object: the owner in the normal case, or a worker that was late to see the
// request, so no worker ever touches a freed mount and releasing never waits
// longer than those two waits.
class Mount {
 public:
  Mount();
  Mount(const Mount&) = delete;
  Mount& operator=(const Mount&) = delete;
  // Asks a running motion worker to give up (waiting at most 2000 ms); by
  // the time the last reference goes, none runs and this returns at once.
  virtual ~Mount();

  // --- Lifetime (see above) -----------------------------------------------
  void Retain();
  // Deletes the object when this was the last reference.
  void Release();
  // Refuses new workers and asks running ones to end; bounded waits.
  void StopWorkersForRelease();
  // Starts entry(parameter) on a new thread holding a reference to this
  // mount, which the entry gives back through a WorkerReference
  // (worker_hand_over.h). False, with nothing started, when the thread
  // cannot be created or the mount is being released.
  bool StartWorker(platform::ThreadEntry entry, void* parameter,
                   platform::ThreadPriority priority);
  // The same for a worker serving one request: `request` reaches the entry
  // with the thread.
  bool StartWorker(platform::TicketedEntry entry, void* parameter, uint32_t request,
                   platform::ThreadPriority priority);
  // The owner's reference plus one per worker thread still running.
  uint32_t References() const { return references_.load(std::memory_order_acquire); }
  // Lets the Alt/Az tracking loop of a geometry layer be halted on release.
  void AttachTrackingLoop(AltAzTracking* tracking) { trackingLoop_ = tracking; }

  // --- Conversions between sky positions and axis angles ---------------
  // The return values carry nothing; callers ignore them. Both write the
  // reduced or corrected input back into the caller's pair.
  virtual int32_t SkyToAxes(AnglePair* sky, AnglePair* axes, int applyTerms);
  virtual int32_t AxesToSky(AnglePair* axes, AnglePair* sky, int applyTerms);

  // --- Geometry hooks -------------------------------------------------
  // Score 0 (unusable) to 5 of a star for alignment.
  virtual int32_t RateAlignmentStar(const AnglePair& star);
  // Loads the nominal matrices of the geometry from the latitude.
  virtual void ResetTransform();
  virtual double GetAxisMisalignment();

  // --- Hardware operations (the protocol layers and simulators) -------
  virtual int32_t ReadAxisPosition(uint32_t axis);
  virtual int32_t ReadAxisStatus(uint32_t axis);
  virtual int32_t PrepareSlew();
  virtual int32_t PrepareAxisRate(uint32_t axis, double rate);
  virtual int32_t OpenMount();
  virtual int32_t SetAxisRate(uint32_t axis, double rate);
  virtual int32_t SlewAxisTo(uint32_t axis, double angle);
  virtual int32_t StopAxisMotor(uint32_t axis);
  virtual int32_t SetAxisPosition(uint32_t axis, double angle);
  virtual int32_t SlewAxesTo(double angle0, double angle1);

  // --- Site, alignment and its record -----------------------------------
  virtual int32_t SetSite(double latitude, double elevation);
  virtual int32_t ResetAlignment(double coneError, double nonPerpError);
  virtual int32_t RateFirstStar(AnglePair star1);
  virtual int32_t RateSecondStar(AnglePair star1, AnglePair star2, int32_t method);
  virtual int32_t RateThirdStar(AnglePair star1, AnglePair star2, AnglePair star3);
  virtual int32_t AlignOneStar(AnglePair sky, AnglePair axes);
  virtual int32_t AlignTwoStars(StarObservation first, StarObservation second);
  virtual int32_t AlignThreeStars(StarObservation first, StarObservation second,
                                  StarObservation third);
  // Fills the 200-byte record and returns its size, 200.
  virtual int32_t GetAlignmentData(uint8_t* record);
  virtual int32_t SetAlignmentData(const uint8_t* record);

  // --- Motion and tracking ----------------------------------------------
  virtual int32_t StartTracking();
  // Tracking at the end of the slew that served `request`: started only
  // while no newer GOTO, move or stop has come, and cancelled if one comes
  // before the tracking has taken hold.
  virtual int32_t StartTrackingAfter(uint32_t request);
  virtual int32_t StopTracking();
  virtual int32_t MoveAxis(uint32_t axis, double rate);
  virtual int32_t StopAxis(uint32_t axis);
  virtual int32_t GotoEquatorial(AnglePair sky);
  virtual int32_t GotoHorizontal(double azimuth, double altitude);
  virtual int32_t GotoAxes(double angle0, double angle1);
  virtual int32_t SyncHome();
  virtual int32_t SyncAxis(uint32_t axis, double angle);

  // --- Settings ------------------------------------------------------------
  virtual int32_t SetAltitudeLimits(double lower, double upper);
  virtual int32_t SetBacklash(uint32_t axis, double angle);
  virtual int32_t SetGuideRate(uint32_t axis, double rate);
  virtual int32_t SetTracking(uint32_t on);
  virtual int32_t SetTrackingRate(int32_t kind);
  virtual int32_t SetExtraMode(int32_t value);
  // Stores the slew tuning; ignores the call if any value is not finite.
  void SetSlewParameters(double margin, double overshoot, double tolerance, double leadTime);

  // --- Status ----------------------------------------------------------------
  virtual int32_t GetAxisPosition(uint32_t axis, double* angle);
  virtual int32_t GetSkyPosition(AnglePair* sky);
  virtual int32_t GetHorizontalPosition(AnglePair* horizontal);
  virtual int32_t GetAxisStatus(uint32_t axis, uint32_t* status);
  virtual int32_t GetMountStatus(uint32_t* status);

  // --- Helpers for the workers and the layers ---------------------------
  int32_t UpdateMountState();
  platform::WaitResult WaitForWorkerIdle();
  double ComputeAltitude(const AnglePair& sky) const;
  // Azimuth from north, positive toward east.
  double ComputeAzimuth(const AnglePair& sky) const;
  // From (azimuth from south, altitude) to (hour angle, declination).
  AnglePair HorizontalToEquatorial(const AnglePair& horizontalFromSouth) const;
  // Clears the tracking bit and tells the waiting workers.
  void ClearTrackingBit();
  // Records that `axis` is about to run at `rate` (zero counts as positive):
  // its direction and a running status, for drivers whose controller does
  // not report them back.
  void NoteAxisRunning(uint32_t axis, double rate);

  // --- Requests -------------------------------------------------------------
  // Every GOTO, manual move and stop is a request with a number of its own,
  // written into axisRequest of each axis it concerns before it touches a
  // run flag. A worker acts (clears run flags, starts tracking, commands an
  // axis) only for its own request: one that finishes just as a newer
  // request arrives leaves the newer one alone.
  uint32_t NewRequest(bool axis0, bool axis1);
  bool IsLatestRequest(uint32_t request, uint32_t axis) const {
    return axisRequest[axis].load() == request;
  }
  bool IsLatestOnBothAxes(uint32_t request) const {
    return IsLatestRequest(request, 0) && IsLatestRequest(request, 1);
  }
  // Sets the run flag of `axis` for the worker of `request` once it holds
  // the axes (a slew finishing before it took them may have cleared it);
  // leaves it clear if a newer request has come. True when it stays set.
  bool ReclaimRunFlag(uint32_t request, uint32_t axis);
  // StopAxis's common part: a stop request on `axis`, its run flag cleared,
  // then a wait (at most 2000 ms) until no worker drives the axis: a worker
  // that drives only the other axis is not waited for.
  void RequestAxisStop(uint32_t axis);
  // Halts the Alt/Az tracking loop, if one runs or is starting, after a
  // motion request was registered: no loop cycle lands in the motion.
  void HaltTrackingLoopIfActive();

  // --- Shared state (defaults set by the constructor) --------------------
  std::atomic<double> latitude{DEFAULT_LATITUDE};
  std::atomic<double> elevation{0.0};
  // skyToAxes/axesToSky matrices and the index, cone and non-perpendicular
  // terms, replaced together.
  PointingModel pointing;

  std::atomic<double> axisPosition[AXIS_COUNT]{0.0, 0.0};
  std::atomic<double> axisTarget[AXIS_COUNT]{0.0, 0.0};
  std::atomic<double> axisRate[AXIS_COUNT]{0.0, 0.0};
  std::atomic<double> segmentStartPosition[AXIS_COUNT]{0.0, 0.0};
  std::atomic<uint32_t> segmentStartTick[AXIS_COUNT]{0, 0};
  std::atomic<uint32_t> axisStatus[AXIS_COUNT]{AXIS_STOPPED, AXIS_STOPPED};
  std::atomic<uint32_t> mountState{STATE_IDLE};

  std::atomic<double> guideRate[AXIS_COUNT]{DEFAULT_GUIDE_RATE, DEFAULT_GUIDE_RATE};
  std::atomic<double> trackingRate{SIDEREAL_RATE};
  std::atomic<double> backlash[AXIS_COUNT]{0.0, 0.0};
  // 1 when the axis last moved in the positive direction.
  std::atomic<uint32_t> axisDirection[AXIS_COUNT]{1, 1};
  std::atomic<double> backlashRate{DEFAULT_BACKLASH_RATE};
  std::atomic<uint32_t> backlashTime[AXIS_COUNT]{0, 0};

  // The hand-over between callers and workers.
  std::atomic<uint32_t> axisRunFlag[AXIS_COUNT]{0, 0};
  // The number of the latest request on each axis (see NewRequest); 0
  // before any.
  std::atomic<uint32_t> axisRequest[AXIS_COUNT]{0, 0};
  std::atomic<uint32_t> requestCount{0};
  // Told whenever a run flag, the tracking bit or `releasing` changes:
  // backlash take-ups sleep on it until their time is up or they must end.
  platform::Notice motionNotice;
  // A slew request whose worker gave up waiting for the axes, and its kind:
  // the worker holding them takes it over (0: none).
  std::atomic<uint32_t> unservedSlew{0};
  std::atomic<uint32_t> unservedSlewKind{0};
  platform::Event workerIdleEvent{/*manualReset=*/true, /*initiallySignalled=*/true};
  std::atomic<uint32_t> slewActive{0};
  std::atomic<uint32_t> abortRequest{0};

  std::atomic<double> gotoTarget[AXIS_COUNT]{0.0, 0.0};
  std::atomic<uint32_t> gotoStartTick{0};
  std::atomic<double> gotoTolerance{DEFAULT_GOTO_TOLERANCE};
  std::atomic<double> approachOvershoot{0.0};
  std::atomic<double> approachMargin{0.0};
  std::atomic<double> slewLeadTime{0.0};
  // Set by the concrete classes before any worker runs.
  uint32_t limitSecondAxisTravel = 0;
  int32_t modelId = -1;
  uint32_t isEquatorial = 0;

  std::atomic<double> altitudeUpperLimit{DEFAULT_ALTITUDE_UPPER_LIMIT};
  std::atomic<double> altitudeLowerLimit{DEFAULT_ALTITUDE_LOWER_LIMIT};
  std::atomic<double> misalignment{0.0};
  std::atomic<uint32_t> alignmentQuality{0};
  std::atomic<uint32_t> aligned{0};
  std::atomic<uint32_t> trackingWanted{0};
  // Every StopTracking counts here; a tracking start notes the count. A
  // start still taking up backlash when the count moves on is called off,
  // so "tracking off" is never undone by a start asked for before it.
  std::atomic<uint32_t> trackingStops{0};
  std::atomic<uint32_t> trackingStopsAtStart{0};
  std::atomic<double> trackStartSky[AXIS_COUNT]{0.0, 0.0};
  std::atomic<uint32_t> trackStartTick{0};

  // 1 from the start of a release: no worker starts, running ones end.
  std::atomic<uint32_t> releasing{0};
  // 1 while a motion worker holds the axes. workerIdleEvent is manual-reset
  // and wakes every waiter at once; this claim lets exactly one of them take
  // the axes (see TakeOverAxes).
  std::atomic<uint32_t> axesClaimed{0};
  // The axes the worker holding them commands (bit per axis), 0 when none.
  std::atomic<uint32_t> drivenAxes{0};
  // Worker threads started on this mount (what starting threads allocated
  // can be told apart from the library's own allocations).
  std::atomic<uint32_t> workerStarts{0};

 private:
  std::atomic<uint32_t> references_{1};
  AltAzTracking* trackingLoop_ = nullptr;
};

// Unique ownership of a mount that releases it the safe way.
struct MountReleaser {
  void operator()(Mount* mount) const {
    mount->StopWorkersForRelease();
    mount->Release();
  }
};
template <typename T = Mount>
using OwnedMount = std::unique_ptr<T, MountReleaser>;

// True for an axis number the per-axis operations accept.
constexpr bool IsValidAxis(uint32_t axis) { return axis < AXIS_COUNT; }

}  // namespace scopemount
