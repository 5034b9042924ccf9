// The exported function table: each function checks its arguments, finds the
// current mount and forwards to one Mount operation, passing its code back.
#include <cmath>
#include <cstring>
#include <initializer_list>

#include "celestial/angles.h"
#include "celestial/sidereal_time.h"
#include "interface/current_mount.h"
#include "interface/messages.h"
#include "platform/language.h"
#include "platform/port_names.h"
#include "scopemount.h"
#include "serial/port_selection.h"

using scopemount::AllFinite;
using scopemount::AnglePair;
using scopemount::CurrentMount;
using scopemount::Mount;
using scopemount::NormalizeAngle;
using scopemount::StarObservation;

namespace {

AnglePair PairAt(const double* p) { return {p[0], p[1]}; }

void StorePair(const AnglePair& pair, double* p) {
  p[0] = pair.lon;
  p[1] = pair.lat;
}

StarObservation ObservationAt(const double* p) { return {{p[0], p[1]}, {p[2], p[3]}}; }

// The rating functions reduce the caller's pairs in place, even when no
// mount is connected.
void NormalizePairInPlace(double* p) {
  p[0] = NormalizeAngle(p[0]);
  p[1] = NormalizeAngle(p[1]);
}

char16_t* AsText(ScopeChar16* buffer) { return reinterpret_cast<char16_t*>(buffer); }

}  // namespace

extern "C" {

void ScopeGetErrorText(int32_t code, ScopeChar16* text) {
  if (text == nullptr) return;
  scopemount::CopyText(scopemount::ErrorText(code, scopemount::platform::CurrentLanguageId()),
                       AsText(text));
}

int32_t ScopeGetModelName(int32_t model, ScopeChar16* name) {
  const char16_t* modelName =
      scopemount::ModelName(model, scopemount::platform::CurrentLanguageId());
  if (modelName == nullptr) return SCOPE_INVALID_MOUNT_ID;
  if (name == nullptr) return SCOPE_INVALID_PARAMETER;
  scopemount::CopyText(modelName, AsText(name));
  return SCOPE_OK;
}

int32_t ScopeConnect(int32_t model, double latitude, double elevation) {
  return scopemount::ConnectMount(model, latitude, elevation);
}

int32_t ScopeDisconnect(void) {
  scopemount::DisconnectMount();
  return SCOPE_OK;
}

int32_t ScopeSetSite(double latitude, double elevation) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->SetSite(latitude, elevation);
}

int32_t ScopeIsEquatorial(void) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return static_cast<int32_t>(mount->isEquatorial);
}

void ScopeSetComPort(int32_t port) {
  if (port >= 0 && port <= scopemount::MAX_PORT_NUMBER) scopemount::SetPortNumber(port);
}

int32_t ScopeRateFirstStar(double* star) {
  if (star == nullptr) return 0;
  NormalizePairInPlace(star);
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->RateFirstStar(PairAt(star));
}

int32_t ScopeRateSecondStar(double* first, double* second, int32_t method) {
  if (first == nullptr || second == nullptr) return 0;
  NormalizePairInPlace(first);
  NormalizePairInPlace(second);
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->RateSecondStar(PairAt(first), PairAt(second), method);
}

int32_t ScopeRateThirdStar(double* first, double* second, double* third) {
  if (first == nullptr || second == nullptr || third == nullptr) return 0;
  NormalizePairInPlace(first);
  NormalizePairInPlace(second);
  NormalizePairInPlace(third);
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->RateThirdStar(PairAt(first), PairAt(second), PairAt(third));
}

int32_t ScopeResetAlignment(double coneError, double nonPerpError) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->ResetAlignment(coneError, nonPerpError);
}

int32_t ScopeAlignOneStar(const double* star) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (star == nullptr) return SCOPE_INVALID_PARAMETER;
  const StarObservation observation = ObservationAt(star);
  return mount->AlignOneStar(observation.sky, observation.axes);
}

int32_t ScopeAlignTwoStars(const double* first, const double* second) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (first == nullptr || second == nullptr) return SCOPE_INVALID_PARAMETER;
  return mount->AlignTwoStars(ObservationAt(first), ObservationAt(second));
}

int32_t ScopeAlignThreeStars(const double* first, const double* second, const double* third) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (first == nullptr || second == nullptr || third == nullptr) return SCOPE_INVALID_PARAMETER;
  return mount->AlignThreeStars(ObservationAt(first), ObservationAt(second),
                                ObservationAt(third));
}

int32_t ScopeGetAlignmentQuality(double* misalignment) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (misalignment != nullptr) *misalignment = mount->misalignment;
  return static_cast<int32_t>(mount->alignmentQuality.load());
}

int32_t ScopeGetPointingTerms(double* cone, double* nonPerp) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  const scopemount::PointingSnapshot model = mount->pointing.Load();
  if (cone != nullptr) *cone = model.coneError;
  if (nonPerp != nullptr) *nonPerp = model.nonPerpError;
  return SCOPE_OK;
}

int32_t ScopeGetAlignmentData(void* record) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (record == nullptr) return SCOPE_INVALID_PARAMETER;
  return mount->GetAlignmentData(static_cast<uint8_t*>(record));
}

int32_t ScopeSetAlignmentData(const void* record) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (record == nullptr) return SCOPE_INVALID_PARAMETER;
  return mount->SetAlignmentData(static_cast<const uint8_t*>(record));
}

int32_t ScopeMoveAxis(uint32_t axis, double rate) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->MoveAxis(axis, rate);
}

int32_t ScopeSlewAxis(uint32_t axis, double angle) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (!AllFinite({angle})) return SCOPE_INVALID_PARAMETER;
  double angles[2];
  const int32_t r = ScopeGetAxisPositions(angles);
  if (r != SCOPE_OK) return r;
  // Any axis other than 0 means the second axis.
  angles[axis == 0 ? 0 : 1] = angle;
  return mount->GotoAxes(angles[0], angles[1]);
}

int32_t ScopeStopAxis(uint32_t axis) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->StopAxis(axis);
}

int32_t ScopeSetAltitudeLimits(double lower, double upper) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->SetAltitudeLimits(lower, upper);
}

int32_t ScopeSyncAxis(uint32_t axis, double angle) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->SyncAxis(axis, angle);
}

int32_t ScopeSetBacklash(uint32_t axis, double angle) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->SetBacklash(axis, angle);
}

int32_t ScopeSetGuideRate(uint32_t axis, double rate) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->SetGuideRate(axis, rate);
}

int32_t ScopeGotoEquatorial(double hourAngle, double declination) {
  const AnglePair target{NormalizeAngle(hourAngle), NormalizeAngle(declination)};
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (!AllFinite({target.lon, target.lat})) return SCOPE_INVALID_PARAMETER;
  return mount->GotoEquatorial(target);
}

int32_t ScopeSetTracking(uint32_t on) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->SetTracking(on);
}

int32_t ScopeSetTrackingRate(int32_t kind) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->SetTrackingRate(kind);
}

int32_t ScopeSetExtraMode(int32_t value) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->SetExtraMode(value);
}

int32_t ScopeGotoAxes(double axis0, double axis1) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  // A GOTO toward a non-finite angle has no destination: refused here, for
  // every driver, before anything is stored as a target.
  if (!AllFinite({axis0, axis1})) return SCOPE_INVALID_PARAMETER;
  return mount->GotoAxes(axis0, axis1);
}

int32_t ScopeGotoHorizontal(double azimuth, double altitude) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (!AllFinite({azimuth, altitude})) return SCOPE_INVALID_PARAMETER;
  return mount->GotoHorizontal(azimuth, altitude);
}

int32_t ScopeSkyToAxes(double hourAngle, double declination, double* axes) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (axes == nullptr) return SCOPE_INVALID_PARAMETER;
  AnglePair sky{hourAngle, declination};
  AnglePair result;
  mount->SkyToAxes(&sky, &result, 1);
  StorePair(result, axes);
  return SCOPE_OK;
}

int32_t ScopeGotoOffset(double hourAngle, double declination, double offset0, double offset1) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  // The offsets are axis angles, applied in the mount's own frame around
  // the sky position.
  AnglePair sky{hourAngle, declination};
  AnglePair axes;
  mount->SkyToAxes(&sky, &axes, 1);
  axes.lon += offset0;
  axes.lat += offset1;
  AnglePair target;
  mount->AxesToSky(&axes, &target, 1);
  if (!AllFinite({target.lon, target.lat})) return SCOPE_INVALID_PARAMETER;
  return mount->GotoEquatorial(target);
}

void ScopeSetSlewParameters(double margin, double overshoot, double tolerance, double leadTime) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return;
  mount->SetSlewParameters(margin, overshoot, tolerance, leadTime);
}

int32_t ScopeSyncHome(void) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  return mount->SyncHome();
}

int32_t ScopeGetAxisPosition(uint32_t axis, double* angle) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (angle == nullptr) return SCOPE_INVALID_PARAMETER;
  return mount->GetAxisPosition(axis, angle);
}

int32_t ScopeGetAxisPositions(double* angles) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (angles == nullptr) return SCOPE_INVALID_PARAMETER;
  const int32_t r = mount->GetAxisPosition(0, &angles[0]);
  if (r != SCOPE_OK) return r;
  return mount->GetAxisPosition(1, &angles[1]);
}

int32_t ScopeGetSkyPosition(double* position) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (position == nullptr) return SCOPE_INVALID_PARAMETER;
  AnglePair sky;
  const int32_t r = mount->GetSkyPosition(&sky);
  StorePair(sky, position);
  return r;
}

int32_t ScopeGetHorizontalPosition(double* position) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (position == nullptr) return SCOPE_INVALID_PARAMETER;
  AnglePair horizontal;
  const int32_t r = mount->GetHorizontalPosition(&horizontal);
  StorePair(horizontal, position);
  return r;
}

int32_t ScopeGetAxisStatus(uint32_t axis, uint32_t* status) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (status == nullptr) return SCOPE_INVALID_PARAMETER;
  return mount->GetAxisStatus(axis, status);
}

int32_t ScopeGetMountStatus(uint32_t* status) {
  Mount* mount = CurrentMount();
  if (mount == nullptr) return SCOPE_NOT_CONNECTED;
  if (status == nullptr) return SCOPE_INVALID_PARAMETER;
  return mount->GetMountStatus(status);
}

double ScopeGetSiderealTime(SYSTEMTIME localTime, double utcOffsetHours, int32_t daylightSaving) {
  return scopemount::GreenwichSiderealTime(localTime, utcOffsetHours, daylightSaving);
}

double ScopeAngularSeparation(double lon1, double lat1, double lon2, double lat2) {
  return scopemount::AngularSeparation(lon1, lat1, lon2, lat2);
}

int32_t ScopeSetPortPath(int32_t port, const char* path) {
  return scopemount::platform::BindPortPath(port, path) ? SCOPE_OK : SCOPE_INVALID_PARAMETER;
}

}  // extern "C"
