/*
 * scopemount: drive a motorised telescope mount.
 *
 * Plain C interface (C99 and C++). One mount at a time is connected; every
 * function that needs it returns SCOPE_NOT_CONNECTED (3) while none is.
 * Angles are radians, rates radians per second, elevation metres.
 * A position is a pair of doubles, longitude-like first: (hour angle,
 * declination), (azimuth from north toward east, altitude) or (axis 0 angle,
 * axis 1 angle). A star observation is four doubles: hour angle,
 * declination, axis 0 angle, axis 1 angle.
 *
 * Each function carries its fixed ordinal in the comment before it: ELF
 * platforms bind by name; the Windows DLL exports the functions by those
 * ordinals only, without names (hosts bind with GetProcAddress and
 * MAKEINTRESOURCE(ordinal)).
 */
#ifndef SCOPEMOUNT_H
#define SCOPEMOUNT_H

#include <stdint.h>
#ifdef _WIN32
#include <windows.h> /* SYSTEMTIME */
#endif

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32) && defined(SCOPEMOUNT_NO_DLLIMPORT)
#define SCOPEMOUNT_API /* the DLL itself, or a program linked with its objects */
#elif defined(_WIN32)
#define SCOPEMOUNT_API __declspec(dllimport)
#elif defined(__GNUC__)
#define SCOPEMOUNT_API __attribute__((visibility("default")))
#else
#define SCOPEMOUNT_API
#endif

/* Result codes. */
#define SCOPE_OK 0
#define SCOPE_INVALID_MOUNT_ID 1
#define SCOPE_ALREADY_CONNECTED 2
#define SCOPE_NOT_CONNECTED 3
#define SCOPE_INVALID_PARAMETER 4
#define SCOPE_SERIAL_PORT_BUSY 5
#define SCOPE_NO_RESPONSE_AXIS1 100
#define SCOPE_NO_RESPONSE_AXIS2 101
#define SCOPE_AXIS_BUSY 102
#define SCOPE_TARGET_TOO_HIGH 103
#define SCOPE_TARGET_TOO_LOW 104
#define SCOPE_USER_INTERRUPT 105
#define SCOPE_ALIGN_FAILED 200
#define SCOPE_NOT_IMPLEMENTED 300
#define SCOPE_INVALID_ALIGNMENT_DATA 400

/* Mount models (ScopeConnect, ScopeGetModelName). */
#define SCOPE_MODEL_COUNT 12
#define SCOPE_MODEL_EQUATORIAL_SIMULATOR 6
#define SCOPE_MODEL_ALTAZ_SIMULATOR 7

/* Axes. */
#define SCOPE_AXIS_0 0u /* right ascension or azimuth */
#define SCOPE_AXIS_1 1u /* declination or altitude */

/* Axis status bits (ScopeGetAxisStatus). */
#define SCOPE_AXIS_STOPPED 1u
#define SCOPE_AXIS_RUNNING 2u
#define SCOPE_AXIS_SLEWING 4u
#define SCOPE_AXIS_POSITIVE 8u
#define SCOPE_AXIS_HIGH_SPEED 16u

/* Mount states (ScopeGetMountStatus). */
#define SCOPE_STATE_IDLE 1u
#define SCOPE_STATE_TRACKING 2u
#define SCOPE_STATE_SLEWING 4u
#define SCOPE_STATE_MOVING 8u

/* Tracking rates (ScopeSetTrackingRate); any other value means sidereal. */
#define SCOPE_TRACK_SIDEREAL 0
#define SCOPE_TRACK_LUNAR 1
#define SCOPE_TRACK_SOLAR 2

/* Sizes of the caller's buffers. */
#define SCOPE_ALIGNMENT_RECORD_SIZE 200
#define SCOPE_TEXT_BUFFER_UNITS 69 /* longest text plus terminator */

/* Text is zero-terminated UTF-16 code units (char16_t in C++). */
#ifdef __cplusplus
typedef char16_t ScopeChar16;
#else
typedef uint16_t ScopeChar16;
#endif

/* Civil time: eight 16-bit fields; the day of week is not read. Windows
 * has its own (windows.h). */
#ifndef _WIN32
typedef struct SYSTEMTIME {
  uint16_t wYear;
  uint16_t wMonth;
  uint16_t wDayOfWeek;
  uint16_t wDay;
  uint16_t wHour;
  uint16_t wMinute;
  uint16_t wSecond;
  uint16_t wMilliseconds;
} SYSTEMTIME;
#endif

/* Handle of a registered Bluetooth serial port. */
typedef void *ScopeDeviceHandle;

/* 1: copy the text of a result code, in the device language, into text
 * (SCOPE_TEXT_BUFFER_UNITS units); a null text writes nothing. */
SCOPEMOUNT_API void ScopeGetErrorText(int32_t code, ScopeChar16 *text);

/* 10: copy the display name of a model into name; 0, 1 for a model
 * outside 0..11 (name untouched), or 4 for a null name. */
SCOPEMOUNT_API int32_t ScopeGetModelName(int32_t model, ScopeChar16 *name);

/* 11: connect a mount model at a site (latitude in radians, elevation in
 * metres); with the same model connected, re-applies the site. */
SCOPEMOUNT_API int32_t ScopeConnect(int32_t model, double latitude, double elevation);

/* 12: disconnect the current mount; always 0. */
SCOPEMOUNT_API int32_t ScopeDisconnect(void);

/* 13: set the site: latitude -pi/2..pi/2, elevation -1000..8848 m. */
SCOPEMOUNT_API int32_t ScopeSetSite(double latitude, double elevation);

/* 14: 1 for an equatorial mount, 0 for Alt/Az, 3 when not connected. */
SCOPEMOUNT_API int32_t ScopeIsEquatorial(void);

/* 15: choose the serial port the next connection opens (0..255; other
 * values are ignored). */
SCOPEMOUNT_API void ScopeSetComPort(int32_t port);

/* 16: register a Bluetooth serial port for a remote device (address low
 * word first) and RFCOMM channel; the port index 0..9 (also chosen for the
 * next connection), or -1. */
SCOPEMOUNT_API int32_t ScopeRegisterBluetoothPort(uint32_t addressLow, uint32_t addressHigh,
                                                  int32_t channel,
                                                  ScopeDeviceHandle *deviceHandle);

/* 20: rate a first alignment star (pair normalised in place); score 0..5
 * (0 for a null pair), or 3. */
SCOPEMOUNT_API int32_t ScopeRateFirstStar(double *star);

/* 21: rate a second alignment star (pairs normalised in place); score 0..5
 * (0 for a null pair), or 3. */
SCOPEMOUNT_API int32_t ScopeRateSecondStar(double *first, double *second, int32_t method);

/* 22: rate a third alignment star (pairs normalised in place); score 0..5
 * (0 for a null pair), or 3. */
SCOPEMOUNT_API int32_t ScopeRateThirdStar(double *first, double *second, double *third);

/* 23: drop the alignment and set the cone and non-perpendicularity terms. */
SCOPEMOUNT_API int32_t ScopeResetAlignment(double coneError, double nonPerpError);

/* 24: align on one star observation (4 doubles). */
SCOPEMOUNT_API int32_t ScopeAlignOneStar(const double *star);

/* 25: align on two star observations. */
SCOPEMOUNT_API int32_t ScopeAlignTwoStars(const double *first, const double *second);

/* 26: align on three star observations. */
SCOPEMOUNT_API int32_t ScopeAlignThreeStars(const double *first, const double *second,
                                            const double *third);

/* 27: alignment quality (0 or 100); stores the misalignment if not null. */
SCOPEMOUNT_API int32_t ScopeGetAlignmentQuality(double *misalignment);

/* 28: the cone and non-perpendicularity terms, through the non-null pointers. */
SCOPEMOUNT_API int32_t ScopeGetPointingTerms(double *cone, double *nonPerp);

/* 29: write the 200-byte alignment record; returns 200 (its size), 3 or 4. */
SCOPEMOUNT_API int32_t ScopeGetAlignmentData(void *record);

/* 30: restore a 200-byte alignment record; 0, or 400 if it is corrupt or
 * belongs to another model. */
SCOPEMOUNT_API int32_t ScopeSetAlignmentData(const void *record);

/* 40: run an axis at a signed rate; a rate near 0 stops it. */
SCOPEMOUNT_API int32_t ScopeMoveAxis(uint32_t axis, double rate);

/* 41: slew one axis to an angle, the other staying put (any nonzero axis
 * means axis 1). */
SCOPEMOUNT_API int32_t ScopeSlewAxis(uint32_t axis, double angle);

/* 42: stop an axis and any motion driving it. */
SCOPEMOUNT_API int32_t ScopeStopAxis(uint32_t axis);

/* 43: altitude limits for GOTOs: lower in (-pi/6, pi/4), upper in
 * (pi/4, pi/2] (larger values are clipped to pi/2). */
SCOPEMOUNT_API int32_t ScopeSetAltitudeLimits(double lower, double upper);

/* 44: declare the current angle of a standing axis. */
SCOPEMOUNT_API int32_t ScopeSyncAxis(uint32_t axis, double angle);

/* 45: backlash of an axis, 0..2 degrees. */
SCOPEMOUNT_API int32_t ScopeSetBacklash(uint32_t axis, double angle);

/* 46: guide rate of an axis, within plus or minus the sidereal rate. */
SCOPEMOUNT_API int32_t ScopeSetGuideRate(uint32_t axis, double rate);

/* 47: GOTO a sky position (hour angle, declination), then track. */
SCOPEMOUNT_API int32_t ScopeGotoEquatorial(double hourAngle, double declination);

/* 48: tracking on (nonzero) or off. */
SCOPEMOUNT_API int32_t ScopeSetTracking(uint32_t on);

/* 49: tracking rate: SCOPE_TRACK_SIDEREAL, _LUNAR or _SOLAR. */
SCOPEMOUNT_API int32_t ScopeSetTrackingRate(int32_t kind);

/* 50: model-specific extra mode. */
SCOPEMOUNT_API int32_t ScopeSetExtraMode(int32_t value);

/* 51: GOTO axis angles. */
SCOPEMOUNT_API int32_t ScopeGotoAxes(double axis0, double axis1);

/* 52: GOTO a horizontal position (azimuth, altitude); no tracking after. */
SCOPEMOUNT_API int32_t ScopeGotoHorizontal(double azimuth, double altitude);

/* 53: convert a sky position to axis angles with the pointing model. */
SCOPEMOUNT_API int32_t ScopeSkyToAxes(double hourAngle, double declination, double *axes);

/* 54: GOTO a sky position displaced by axis-angle offsets. */
SCOPEMOUNT_API int32_t ScopeGotoOffset(double hourAngle, double declination, double offset0,
                                       double offset1);

/* 55: slew tuning: approach margin, overshoot and arrival tolerance
 * (radians), lead time (seconds). Ignored when not connected or when any
 * value is not finite. */
SCOPEMOUNT_API void ScopeSetSlewParameters(double margin, double overshoot, double tolerance,
                                           double leadTime);

/* 56: declare the axes at their home position. */
SCOPEMOUNT_API int32_t ScopeSyncHome(void);

/* 70: the angle of one axis. */
SCOPEMOUNT_API int32_t ScopeGetAxisPosition(uint32_t axis, double *angle);

/* 71: the angles of both axes. */
SCOPEMOUNT_API int32_t ScopeGetAxisPositions(double *angles);

/* 72: where the mount points: (hour angle, declination). */
SCOPEMOUNT_API int32_t ScopeGetSkyPosition(double *position);

/* 73: where the mount points: (azimuth, altitude). */
SCOPEMOUNT_API int32_t ScopeGetHorizontalPosition(double *position);

/* 74: status bits of an axis (SCOPE_AXIS_*). */
SCOPEMOUNT_API int32_t ScopeGetAxisStatus(uint32_t axis, uint32_t *status);

/* 75: state of the mount (SCOPE_STATE_*). */
SCOPEMOUNT_API int32_t ScopeGetMountStatus(uint32_t *status);

/* 90: Greenwich mean sidereal time (radians, not reduced) of a local civil
 * time; utcOffsetHours is local minus UTC, daylight saving adds an hour. */
SCOPEMOUNT_API double ScopeGetSiderealTime(SYSTEMTIME localTime, double utcOffsetHours,
                                           int32_t daylightSaving);

/* 91: great-circle angle between two positions, 0..pi. */
SCOPEMOUNT_API double ScopeAngularSeparation(double lon1, double lat1, double lon2, double lat2);

/* Extension, 100: bind port number 0..255 to a device path (UTF-8); a null
 * or empty path unbinds it. Unbound port N opens /dev/ttyS<N> (on Windows
 * COM<N>, or \\.\COM<N> from 10 on). 0, or 4. */
SCOPEMOUNT_API int32_t ScopeSetPortPath(int32_t port, const char *path);

/* Extension, 101: release a port that ScopeRegisterBluetoothPort
 * registered, given the handle it handed back; its index opens its ordinary
 * device again. 0, or 4 for a handle it does not know (null included). */
SCOPEMOUNT_API int32_t ScopeReleaseBluetoothPort(ScopeDeviceHandle deviceHandle);

#ifdef __cplusplus
}
#endif

#endif /* SCOPEMOUNT_H */
