#include "mount/mount.h"

#include <cmath>
#include <initializer_list>

#include "mount/alignment_record.h"
#include "mount/motion_workers.h"
#include "mount/star_alignment.h"
#include "mount/tracking_workers.h"
#include "platform/clock.h"

namespace scopemount {

Mount::Mount() { Mount::ResetTransform(); }

Mount::~Mount() { WaitForWorkerIdle(); }

// ---------------------------------------------------------------------------
// Lifetime

void Mount::Retain() { references_.fetch_add(1, std::memory_order_relaxed); }

void Mount::Release() {
  if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

void Mount::StopWorkersForRelease() {
  releasing = 1;
  // Clearing the run flags is StopAxis for every worker at once: a slew
  // stops both axes and ends, a backlash take-up ends early.
  axisRunFlag[0] = 0;
  axisRunFlag[1] = 0;
  motionNotice.Notify();
  if (trackingLoop_ != nullptr) trackingLoop_->Halt();
  WaitForWorkerIdle();
}

bool Mount::StartWorker(platform::ThreadEntry entry, void* parameter,
                        platform::ThreadPriority priority) {
  if (releasing == 1) return false;
  Retain();
  if (!platform::StartThread(entry, parameter, priority)) {
    Release();
    return false;
  }
  ++workerStarts;
  return true;
}

bool Mount::StartWorker(platform::TicketedEntry entry, void* parameter, uint32_t request,
                        platform::ThreadPriority priority) {
  if (releasing == 1) return false;
  Retain();
  if (!platform::StartThread(entry, parameter, request, priority)) {
    Release();
    return false;
  }
  ++workerStarts;
  return true;
}

// ---------------------------------------------------------------------------
// Conversions

int32_t Mount::SkyToAxes(AnglePair* sky, AnglePair* axes, int applyTerms) {
  sky->lon = NormalizeAngle(sky->lon);
  const PointingConversion model = pointing.LoadConversion(ConversionDirection::SkyToAxes);
  *axes = TransformDirection(model.matrix, *sky);
  if (applyTerms != 0) {
    // The axis-0 terms use the axis-1 angle before the index error is removed.
    axes->lon -= AxisZeroTermOffset(model, axes->lat);
    axes->lat -= model.indexError;
  }
  return Ok;
}

int32_t Mount::AxesToSky(AnglePair* axes, AnglePair* sky, int applyTerms) {
  const PointingConversion model = pointing.LoadConversion(ConversionDirection::AxesToSky);
  if (applyTerms != 0) {
    axes->lat += model.indexError;
    axes->lon += AxisZeroTermOffset(model, axes->lat);
  }
  *sky = TransformDirection(model.matrix, *axes);
  return Ok;
}

// ---------------------------------------------------------------------------
// Geometry hooks: the geometry layers override these.

int32_t Mount::RateAlignmentStar(const AnglePair& star) {
  const double altitude = ComputeAltitude(star);
  // NaN fails every comparison below, so test it first: it is no star.
  if (!std::isfinite(altitude)) return 0;
  if (altitude < altitudeLowerLimit || altitude < MIN_ALIGNMENT_STAR_ALTITUDE ||
      altitude > altitudeUpperLimit) {
    return 0;
  }
  return BEST_STAR_SCORE;
}

void Mount::ResetTransform() {}

double Mount::GetAxisMisalignment() { return 0.0; }

// ---------------------------------------------------------------------------
// Hardware operations: the protocol layers and simulators override these.

int32_t Mount::ReadAxisPosition(uint32_t) { return NotImplemented; }
int32_t Mount::ReadAxisStatus(uint32_t) { return NotImplemented; }
int32_t Mount::PrepareSlew() { return Ok; }
int32_t Mount::PrepareAxisRate(uint32_t, double) { return Ok; }
int32_t Mount::OpenMount() { return Ok; }
int32_t Mount::SetAxisRate(uint32_t, double) { return NotImplemented; }
int32_t Mount::SlewAxisTo(uint32_t, double) { return NotImplemented; }
int32_t Mount::StopAxisMotor(uint32_t) { return NotImplemented; }

int32_t Mount::SetAxisPosition(uint32_t axis, double angle) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  axisPosition[axis] = angle;
  return Ok;
}

int32_t Mount::SlewAxesTo(double angle0, double angle1) {
  const int32_t r = SlewAxisTo(0, angle0);
  if (r != Ok) return r;
  return SlewAxisTo(1, angle1);
}

// ---------------------------------------------------------------------------
// Site, alignment and the saved record

int32_t Mount::SetSite(double newLatitude, double newElevation) {
  if (!(newLatitude >= -HALF_PI && newLatitude <= HALF_PI)) return InvalidParameter;
  latitude = newLatitude;
  // An equatorial mount turns the other way under a southern sky.
  if (isEquatorial == 1) {
    const double rate = trackingRate;
    if ((newLatitude < 0.0 && rate > 0.0) || (newLatitude >= 0.0 && rate < 0.0)) {
      trackingRate = -rate;
    }
  }
  if (!(newElevation >= MIN_ELEVATION && newElevation <= MAX_ELEVATION)) return InvalidParameter;
  elevation = newElevation;
  if (aligned == 0) ResetTransform();
  return Ok;
}

int32_t Mount::ResetAlignment(double coneError, double nonPerpError) {
  if (!AllFinite({coneError, nonPerpError})) return InvalidParameter;
  ResetTransform();
  pointing.Update([&](PointingSnapshot& model) {
    model.indexError = 0.0;
    model.coneError = coneError;
    model.nonPerpError = nonPerpError;
  });
  misalignment = 0.0;
  aligned = 0;
  return Ok;
}

int32_t Mount::RateFirstStar(AnglePair star1) { return RateAlignmentStar(star1); }

int32_t Mount::RateSecondStar(AnglePair, AnglePair star2, int32_t) {
  return RateAlignmentStar(star2);
}

int32_t Mount::RateThirdStar(AnglePair, AnglePair, AnglePair star3) {
  return RateAlignmentStar(star3);
}

int32_t Mount::AlignOneStar(AnglePair sky, AnglePair axes) {
  return AlignOnOneStar(*this, sky, axes);
}

int32_t Mount::AlignTwoStars(StarObservation first, StarObservation second) {
  return AlignOnTwoStars(*this, first, second);
}

int32_t Mount::AlignThreeStars(StarObservation first, StarObservation second,
                               StarObservation third) {
  return AlignOnThreeStars(*this, first, second, third);
}

int32_t Mount::GetAlignmentData(uint8_t* record) {
  AlignmentRecordFields fields;
  fields.modelId = modelId;
  fields.pointing = pointing.Load();
  fields.misalignment = misalignment;
  fields.alignmentQuality = alignmentQuality;
  fields.aligned = aligned;
  EncodeAlignmentRecord(fields, record);
  return static_cast<int32_t>(ALIGNMENT_RECORD_SIZE);
}

int32_t Mount::SetAlignmentData(const uint8_t* record) {
  AlignmentRecordFields fields;
  if (!DecodeAlignmentRecord(record, modelId, &fields)) return InvalidAlignmentData;
  pointing.Store(fields.pointing);
  misalignment = fields.misalignment;
  alignmentQuality = fields.alignmentQuality;
  aligned = fields.aligned;
  return Ok;
}

// ---------------------------------------------------------------------------
// Motion and tracking

int32_t Mount::StartTracking() { return NotImplemented; }

int32_t Mount::StartTrackingAfter(uint32_t request) {
  return IsLatestOnBothAxes(request) ? StartTracking() : Ok;
}

int32_t Mount::StopTracking() {
  ++trackingStops;
  motionNotice.Notify();
  if ((mountState & STATE_TRACKING) != 0) {
    StopAxisMotor(0);
    StopAxisMotor(1);
    ClearTrackingBit();
  }
  return Ok;
}

int32_t Mount::MoveAxis(uint32_t axis, double rate) {
  if (!IsValidAxis(axis) || !std::isfinite(rate)) return InvalidParameter;
  if (std::fabs(rate) < MIN_MOVE_RATE) {
    StopAxis(axis);
    return Ok;
  }
  const uint32_t request = NewRequest(axis == 0, axis == 1);
  axisRate[axis] = rate;
  axisRunFlag[axis] = 1;
  ClearTrackingBit();
  HaltTrackingLoopIfActive();
  return StartAxisMotion(*this, axis, request);
}

int32_t Mount::StopAxis(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  RequestAxisStop(axis);
  return StopAxisMotor(axis);
}

int32_t Mount::GotoEquatorial(AnglePair sky) {
  if (!AllFinite({sky.lon, sky.lat})) return InvalidParameter;
  const double altitude = ComputeAltitude(sky);
  if (altitude > altitudeUpperLimit) return TargetTooHigh;
  if (altitude < altitudeLowerLimit) return TargetTooLow;
  const uint32_t request = NewRequest(true, true);
  gotoTarget[0] = sky.lon;
  gotoTarget[1] = sky.lat;
  gotoStartTick = platform::TickCount();
  axisRunFlag[0] = 1;
  axisRunFlag[1] = 1;
  ClearTrackingBit();
  trackingWanted = 0;
  HaltTrackingLoopIfActive();
  return StartEquatorialSlew(*this, request);
}

int32_t Mount::GotoHorizontal(double azimuth, double altitude) {
  if (!AllFinite({azimuth, altitude})) return InvalidParameter;
  if (altitude > altitudeUpperLimit) return TargetTooHigh;
  if (altitude < altitudeLowerLimit) return TargetTooLow;
  // The conversion counts the azimuth from south.
  const double fromSouth = azimuth >= 0.0 ? azimuth - PI : azimuth + PI;
  AnglePair sky = HorizontalToEquatorial({fromSouth, altitude});
  AnglePair axes;
  SkyToAxes(&sky, &axes, 1);
  return StartAxisTargetSlew(*this, axes.lon, axes.lat);
}

// The geometry layers start the axis-target slew (StartAxisTargetSlew).
int32_t Mount::GotoAxes(double angle0, double angle1) {
  if (!AllFinite({angle0, angle1})) return InvalidParameter;
  return NotImplemented;
}

int32_t Mount::SyncHome() {
  if (isEquatorial == 1) {
    const int32_t r = SetAxisPosition(0, -HALF_PI);
    if (r != Ok) return r;
    return SetAxisPosition(1, HALF_PI);
  }
  const int32_t r = SetAxisPosition(0, 0.0);
  if (r != Ok) return r;
  return SetAxisPosition(1, 0.0);
}

int32_t Mount::SyncAxis(uint32_t axis, double angle) {
  if (!IsValidAxis(axis) || !std::isfinite(angle)) return InvalidParameter;
  ReadAxisStatus(axis);
  if ((axisStatus[axis] & AXIS_STOPPED) == 0) return AxisBusy;
  const double reduced = NormalizeAngle(angle);
  axisPosition[axis] = reduced;
  return SetAxisPosition(axis, reduced);
}

// ---------------------------------------------------------------------------
// Settings

int32_t Mount::SetAltitudeLimits(double lower, double upper) {
  if (upper > HALF_PI) upper = HALF_PI;
  if (!(upper <= HALF_PI && upper > QUARTER_PI)) return InvalidParameter;
  altitudeUpperLimit = upper;
  if (!(lower < QUARTER_PI && lower > MIN_ALTITUDE_LOWER_LIMIT)) return InvalidParameter;
  altitudeLowerLimit = lower;
  return Ok;
}

int32_t Mount::SetBacklash(uint32_t axis, double angle) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (!(angle >= 0.0 && angle <= MAX_BACKLASH)) return InvalidParameter;
  backlash[axis] = angle;
  backlashTime[axis] = static_cast<uint32_t>(1000.0 * angle / backlashRate);
  return Ok;
}

int32_t Mount::SetGuideRate(uint32_t axis, double rate) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (!(rate >= -SIDEREAL_RATE && rate <= SIDEREAL_RATE)) return InvalidParameter;
  guideRate[axis] = rate;
  return Ok;
}

int32_t Mount::SetTracking(uint32_t on) {
  trackingWanted = on;
  UpdateMountState();
  if (on != 0) {
    StartTracking();
  } else {
    StopTracking();
  }
  return Ok;
}

int32_t Mount::SetTrackingRate(int32_t kind) {
  double rate = SIDEREAL_RATE;
  if (kind == TRACKING_LUNAR) rate = LUNAR_RATE;
  if (kind == TRACKING_SOLAR) rate = SOLAR_RATE;
  if (latitude < 0.0 && isEquatorial == 1) rate = -rate;
  trackingRate = rate;
  return Ok;
}

int32_t Mount::SetExtraMode(int32_t) { return NotImplemented; }

void Mount::SetSlewParameters(double margin, double overshoot, double tolerance,
                              double leadTime) {
  if (!AllFinite({margin, overshoot, tolerance, leadTime})) return;
  approachMargin = margin;
  approachOvershoot = overshoot;
  gotoTolerance = tolerance;
  slewLeadTime = leadTime;
}

// ---------------------------------------------------------------------------
// Status

int32_t Mount::GetAxisPosition(uint32_t axis, double* angle) {
  if (!IsValidAxis(axis) || angle == nullptr) return InvalidParameter;
  const int32_t r = ReadAxisPosition(axis);
  *angle = axisPosition[axis];
  return r;
}

int32_t Mount::GetSkyPosition(AnglePair* sky) {
  if (sky == nullptr) return InvalidParameter;
  ReadAxisPosition(0);
  ReadAxisPosition(1);
  AnglePair axes{axisPosition[0], axisPosition[1]};
  AxesToSky(&axes, sky, 1);
  return Ok;
}

int32_t Mount::GetHorizontalPosition(AnglePair* horizontal) {
  if (horizontal == nullptr) return InvalidParameter;
  ReadAxisPosition(0);
  ReadAxisPosition(1);
  const PointingConversion model = pointing.LoadConversion(ConversionDirection::AxesToSky);
  const double a1 = axisPosition[1] + model.indexError;
  const double a0 = axisPosition[0] + AxisZeroTermOffset(model, a1);
  const AnglePair sky = TransformDirection(model.matrix, {a0, a1});
  horizontal->lat = ComputeAltitude(sky);
  horizontal->lon = ComputeAzimuth(sky);
  return Ok;
}

int32_t Mount::GetAxisStatus(uint32_t axis, uint32_t* status) {
  if (!IsValidAxis(axis) || status == nullptr) return InvalidParameter;
  ReadAxisStatus(axis);
  *status = axisStatus[axis] & AXIS_STATUS_MASK;
  return Ok;
}

int32_t Mount::GetMountStatus(uint32_t* status) {
  if (status == nullptr) return InvalidParameter;
  UpdateMountState();
  *status = mountState & MOUNT_STATE_MASK;
  return Ok;
}

// ---------------------------------------------------------------------------
// Helpers

int32_t Mount::UpdateMountState() {
  // The state as it was before the axes were read: a worker that changes it
  // meanwhile (a tracking start, the end of a slew) knows better than this
  // poll, so the poll writes only over the value it saw.
  uint32_t seen = mountState;
  uint32_t s0 = 0;
  uint32_t s1 = 0;
  GetAxisStatus(0, &s0);
  GetAxisStatus(1, &s1);
  uint32_t next = seen;
  if (slewActive == 1 || ((s0 | s1) & AXIS_SLEWING) != 0) {
    next = STATE_SLEWING;
  } else if ((s0 & s1 & AXIS_STOPPED) != 0) {
    next = seen == STATE_TRACKING ? STATE_TRACKING : STATE_IDLE;
  } else if (((s0 | s1) & AXIS_RUNNING) != 0) {
    next = (axisRunFlag[0] != 0 || axisRunFlag[1] != 0) ? STATE_MOVING : STATE_TRACKING;
  }
  mountState.compare_exchange_strong(seen, next);
  return Ok;
}

platform::WaitResult Mount::WaitForWorkerIdle() {
  abortRequest = 1;
  const platform::WaitResult result = workerIdleEvent.Wait(SLEW_TAKE_OVER_WAIT_MS);
  abortRequest = 0;
  return result;
}

double Mount::ComputeAltitude(const AnglePair& sky) const {
  const double lat = latitude;
  return std::asin(std::sin(lat) * std::sin(sky.lat) +
                   std::cos(lat) * std::cos(sky.lat) * std::cos(sky.lon));
}

double Mount::ComputeAzimuth(const AnglePair& sky) const {
  const double lat = latitude;
  // atan2 gives the azimuth from south, positive toward west; turn it half a
  // turn to count from north toward east.
  const double fromSouth = std::atan2(
      std::sin(sky.lon), std::cos(sky.lon) * std::sin(lat) - std::tan(sky.lat) * std::cos(lat));
  return fromSouth >= 0.0 ? fromSouth - PI : fromSouth + PI;
}

AnglePair Mount::HorizontalToEquatorial(const AnglePair& horizontalFromSouth) const {
  const double lat = latitude;
  const double sinLat = std::sin(lat);
  const double cosLat = std::cos(lat);
  const double az = horizontalFromSouth.lon;
  const double alt = horizontalFromSouth.lat;
  const double cosAz = std::cos(az);
  const double declination = std::asin(sinLat * std::sin(alt) - cosLat * std::cos(alt) * cosAz);
  const double hourAngle = std::atan2(std::sin(az), cosAz * sinLat + std::tan(alt) * cosLat);
  return {hourAngle, declination};
}

void Mount::NoteAxisRunning(uint32_t axis, double rate) {
  const bool positive = rate >= 0.0;
  axisDirection[axis] = positive ? 1 : 0;
  axisStatus[axis] = positive ? (AXIS_RUNNING | AXIS_POSITIVE) : AXIS_RUNNING;
}

void Mount::ClearTrackingBit() {
  mountState &= ~STATE_TRACKING;
  motionNotice.Notify();
}

// ---------------------------------------------------------------------------
// Requests

uint32_t Mount::NewRequest(bool axis0, bool axis1) {
  uint32_t request = ++requestCount;
  // 0 means "no request"; skip it when the count wraps.
  if (request == 0) request = ++requestCount;
  if (axis0) axisRequest[0] = request;
  if (axis1) axisRequest[1] = request;
  return request;
}

bool Mount::ReclaimRunFlag(uint32_t request, uint32_t axis) {
  if (!IsLatestRequest(request, axis)) return axisRunFlag[axis] == 1;
  axisRunFlag[axis] = 1;
  // A stop that came between the test and the store wins: its number is
  // already written, so this sees it and undoes the store.
  if (IsLatestRequest(request, axis)) return true;
  axisRunFlag[axis] = 0;
  motionNotice.Notify();
  return false;
}

void Mount::RequestAxisStop(uint32_t axis) {
  NewRequest(axis == 0, axis == 1);
  axisRunFlag[axis] = 0;
  motionNotice.Notify();
  const uint32_t bit = 1u << axis;
  motionNotice.WaitFor(SLEW_TAKE_OVER_WAIT_MS, [this, bit] {
    return workerIdleEvent.IsSignalled() || (drivenAxes & bit) == 0;
  });
}

void Mount::HaltTrackingLoopIfActive() {
  if (trackingLoop_ != nullptr && trackingLoop_->IsStartingOrRunning()) trackingLoop_->Halt();
}

}  // namespace scopemount
