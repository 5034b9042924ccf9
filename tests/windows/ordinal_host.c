/*
 * A host of scopemount the way a Windows application binds it: the library
 * loaded at run time, every function found by its ordinal alone. On Linux
 * the same source finds them by name, so both builds can dump what must be
 * byte-identical between them (result codes, alignment record, UTF-16 texts).
 *
 *   ordinal_host <library> [dump-file]      both simulators through the table
 *   ordinal_host <library> --serial <port> <model>   a hardware model on a port
 *
 * Exit status 0 when every check held.
 */
#ifndef _WIN32
#define _POSIX_C_SOURCE 200112L
#endif

#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <time.h>
#endif

#include "scopemount.h"

/* Every function of the table: ordinal, result, name, parameters. The
 * export checks of both builds read these rows as the table. */
#define SCOPE_FUNCTIONS(X)                                                            \
  X(1, void, ScopeGetErrorText, (int32_t, ScopeChar16 *))                             \
  X(10, int32_t, ScopeGetModelName, (int32_t, ScopeChar16 *))                         \
  X(11, int32_t, ScopeConnect, (int32_t, double, double))                             \
  X(12, int32_t, ScopeDisconnect, (void))                                             \
  X(13, int32_t, ScopeSetSite, (double, double))                                      \
  X(14, int32_t, ScopeIsEquatorial, (void))                                           \
  X(15, void, ScopeSetComPort, (int32_t))                                             \
  X(16, int32_t, ScopeRegisterBluetoothPort,                                          \
    (uint32_t, uint32_t, int32_t, ScopeDeviceHandle *))                               \
  X(20, int32_t, ScopeRateFirstStar, (double *))                                      \
  X(21, int32_t, ScopeRateSecondStar, (double *, double *, int32_t))                  \
  X(22, int32_t, ScopeRateThirdStar, (double *, double *, double *))                  \
  X(23, int32_t, ScopeResetAlignment, (double, double))                               \
  X(24, int32_t, ScopeAlignOneStar, (const double *))                                 \
  X(25, int32_t, ScopeAlignTwoStars, (const double *, const double *))                \
  X(26, int32_t, ScopeAlignThreeStars, (const double *, const double *, const double *)) \
  X(27, int32_t, ScopeGetAlignmentQuality, (double *))                                \
  X(28, int32_t, ScopeGetPointingTerms, (double *, double *))                         \
  X(29, int32_t, ScopeGetAlignmentData, (void *))                                     \
  X(30, int32_t, ScopeSetAlignmentData, (const void *))                               \
  X(40, int32_t, ScopeMoveAxis, (uint32_t, double))                                   \
  X(41, int32_t, ScopeSlewAxis, (uint32_t, double))                                   \
  X(42, int32_t, ScopeStopAxis, (uint32_t))                                           \
  X(43, int32_t, ScopeSetAltitudeLimits, (double, double))                            \
  X(44, int32_t, ScopeSyncAxis, (uint32_t, double))                                   \
  X(45, int32_t, ScopeSetBacklash, (uint32_t, double))                                \
  X(46, int32_t, ScopeSetGuideRate, (uint32_t, double))                               \
  X(47, int32_t, ScopeGotoEquatorial, (double, double))                               \
  X(48, int32_t, ScopeSetTracking, (uint32_t))                                        \
  X(49, int32_t, ScopeSetTrackingRate, (int32_t))                                     \
  X(50, int32_t, ScopeSetExtraMode, (int32_t))                                        \
  X(51, int32_t, ScopeGotoAxes, (double, double))                                     \
  X(52, int32_t, ScopeGotoHorizontal, (double, double))                               \
  X(53, int32_t, ScopeSkyToAxes, (double, double, double *))                          \
  X(54, int32_t, ScopeGotoOffset, (double, double, double, double))                   \
  X(55, void, ScopeSetSlewParameters, (double, double, double, double))               \
  X(56, int32_t, ScopeSyncHome, (void))                                               \
  X(70, int32_t, ScopeGetAxisPosition, (uint32_t, double *))                          \
  X(71, int32_t, ScopeGetAxisPositions, (double *))                                   \
  X(72, int32_t, ScopeGetSkyPosition, (double *))                                     \
  X(73, int32_t, ScopeGetHorizontalPosition, (double *))                              \
  X(74, int32_t, ScopeGetAxisStatus, (uint32_t, uint32_t *))                          \
  X(75, int32_t, ScopeGetMountStatus, (uint32_t *))                                   \
  X(90, double, ScopeGetSiderealTime, (SYSTEMTIME, double, int32_t))                  \
  X(91, double, ScopeAngularSeparation, (double, double, double, double))             \
  X(100, int32_t, ScopeSetPortPath, (int32_t, const char *))                          \
  X(101, int32_t, ScopeReleaseBluetoothPort, (ScopeDeviceHandle))

typedef void (*AnyFunction)(void);

#define DECLARE_FUNCTION(ordinal, result, name, parameters) \
  typedef result(*name##_type) parameters;                   \
  enum { name##_ordinal = ordinal };
SCOPE_FUNCTIONS(DECLARE_FUNCTION)

#define HIGHEST_ORDINAL 101
static AnyFunction bound[HIGHEST_ORDINAL + 1];

/* The function bound to an ordinal, with its own type. */
#define AT(name) ((name##_type)bound[name##_ordinal])

struct Export {
  int ordinal;
  const char *name;
};
#define EXPORT_ENTRY(ordinal, result, name, parameters) {ordinal, #name},
static const struct Export EXPORTS[] = {SCOPE_FUNCTIONS(EXPORT_ENTRY)};
#define EXPORT_COUNT (sizeof EXPORTS / sizeof EXPORTS[0])

/* ---- the platform: loading, time, language ---------------------------- */

#ifdef _WIN32
static HMODULE library;

static int Load(const char *path) {
  library = LoadLibraryA(path);
  if (library == NULL) printf("FAIL: LoadLibrary(%s): error %lu\n", path, (unsigned long)GetLastError());
  return library != NULL;
}

static AnyFunction Resolve(const struct Export *e) {
  return (AnyFunction)GetProcAddress(library, MAKEINTRESOURCEA(e->ordinal));
}

static uint64_t NowMs(void) { return GetTickCount64(); }
static void PauseMs(unsigned ms) { Sleep(ms); }

static void UseLanguage(uint16_t language) {
  SetThreadLocale(MAKELCID(language, SORT_DEFAULT));
}
#else
static void *library;

static int Load(const char *path) {
  library = dlopen(path, RTLD_NOW);
  if (library == NULL) printf("FAIL: dlopen(%s): %s\n", path, dlerror());
  return library != NULL;
}

static AnyFunction Resolve(const struct Export *e) {
  void *found = dlsym(library, e->name);
  AnyFunction function;
  memcpy(&function, &found, sizeof function);
  return function;
}

static uint64_t NowMs(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (uint64_t)now.tv_sec * 1000u + (uint64_t)now.tv_nsec / 1000000u;
}

static void PauseMs(unsigned ms) {
  struct timespec pause;
  pause.tv_sec = ms / 1000u;
  pause.tv_nsec = (long)(ms % 1000u) * 1000000L;
  nanosleep(&pause, NULL);
}

static void UseLanguage(uint16_t language) {
  const char *locale = language == 0x0804   ? "zh_CN.UTF-8"
                       : language == 0x0404 ? "zh_TW.UTF-8"
                                            : "en_US.UTF-8";
  setenv("LC_ALL", locale, 1);
}
#endif

/* Binds every function of the table: by ordinal on Windows (the export
 * check makes sure no name would resolve), by name elsewhere. */
static int BindAll(const char *path) {
  size_t i;
  int missing = 0;
  if (!Load(path)) return 0;
  for (i = 0; i < EXPORT_COUNT; ++i) {
    bound[EXPORTS[i].ordinal] = Resolve(&EXPORTS[i]);
    if (bound[EXPORTS[i].ordinal] == NULL) {
      printf("FAIL: ordinal %d (%s) does not resolve\n", EXPORTS[i].ordinal, EXPORTS[i].name);
      ++missing;
    }
  }
  return missing == 0;
}

/* ---- checks and the dump ------------------------------------------------ */

static int failures = 0;
static FILE *dump = NULL;

static void Check(int holds, const char *what) {
  if (!holds) {
    printf("FAIL: %s\n", what);
    ++failures;
  }
}

static void DumpBytes(const void *bytes, size_t count) {
  if (dump != NULL) fwrite(bytes, 1, count, dump);
}

/* Little-endian, whatever the machine. */
static void DumpCode(int32_t code) {
  uint8_t bytes[4];
  uint32_t value = (uint32_t)code;
  int i;
  for (i = 0; i < 4; ++i) bytes[i] = (uint8_t)(value >> (8 * i));
  DumpBytes(bytes, sizeof bytes);
}

static void DumpText(const ScopeChar16 *text, size_t units) {
  size_t i;
  for (i = 0; i < units; ++i) {
    uint8_t bytes[2];
    bytes[0] = (uint8_t)(text[i] & 0xFF);
    bytes[1] = (uint8_t)(text[i] >> 8);
    DumpBytes(bytes, sizeof bytes);
  }
}

/* A result code that must be `expected`; it goes into the dump. */
static void Code(int32_t got, int32_t expected, const char *what) {
  DumpCode(got);
  if (got != expected) {
    printf("FAIL: %s returned %d, expected %d\n", what, (int)got, (int)expected);
    ++failures;
  }
}

static uint32_t MountState(void) {
  uint32_t state = 0;
  AT(ScopeGetMountStatus)(&state);
  return state;
}

/* Polls the mount state every 50 ms until it is `state`; 1 when that
 * happened before `limitMs`. */
static int WaitForState(uint32_t state, unsigned limitMs) {
  const uint64_t deadline = NowMs() + limitMs;
  do {
    if (MountState() == state) return 1;
    PauseMs(50);
  } while (NowMs() < deadline);
  printf("  (the mount state stayed %u, not %u)\n", (unsigned)MountState(), (unsigned)state);
  return 0;
}

static int WaitForAxisStopped(uint32_t axis, unsigned limitMs) {
  const uint64_t deadline = NowMs() + limitMs;
  do {
    uint32_t status = 0;
    AT(ScopeGetAxisStatus)(axis, &status);
    if ((status & SCOPE_AXIS_STOPPED) != 0) return 1;
    PauseMs(20);
  } while (NowMs() < deadline);
  return 0;
}

/* ---- the session ---------------------------------------------------------- */

#define PI 3.14159265358979323846
#define DEGREE (PI / 180.0)
/* The sky's turn in radians per second of time: a GOTO's hour angle grows
 * with it from the request on. */
#define SIDEREAL_RATE 7.292115855377074e-5
#define SITE_LATITUDE (45.0 * DEGREE)
#define SITE_ELEVATION 100.0
#define GOTO_LIMIT_MS 30000u

static const int32_t CODES[] = {0, 1, 2, 3, 4, 5, 100, 101, 102, 103, 104, 105, 200, 300, 400,
                                -1, 6, 999};
static const uint16_t LANGUAGES[] = {0x0409, 0x0804, 0x0404};

/* Every error text and model name in each language, as whole buffers: the
 * dumps of both builds must agree, language by language. */
static void Texts(void) {
  size_t l, i;
  for (l = 0; l < sizeof LANGUAGES / sizeof LANGUAGES[0]; ++l) {
    UseLanguage(LANGUAGES[l]);
    for (i = 0; i < sizeof CODES / sizeof CODES[0]; ++i) {
      ScopeChar16 text[SCOPE_TEXT_BUFFER_UNITS];
      memset(text, 0, sizeof text);
      AT(ScopeGetErrorText)(CODES[i], text);
      Check(text[0] != 0, "every code has a text");
      DumpText(text, SCOPE_TEXT_BUFFER_UNITS);
    }
    for (i = 0; i < SCOPE_MODEL_COUNT; ++i) {
      ScopeChar16 name[SCOPE_TEXT_BUFFER_UNITS];
      memset(name, 0, sizeof name);
      Code(AT(ScopeGetModelName)((int32_t)i, name), SCOPE_OK, "ScopeGetModelName");
      DumpText(name, SCOPE_TEXT_BUFFER_UNITS);
    }
  }
  UseLanguage(LANGUAGES[0]);
}

static void NotConnected(void) {
  double angle = 0.0;
  Code(AT(ScopeConnect)(12, SITE_LATITUDE, SITE_ELEVATION), SCOPE_INVALID_MOUNT_ID, "connect 12");
  Code(AT(ScopeConnect)(-1, SITE_LATITUDE, SITE_ELEVATION), SCOPE_INVALID_MOUNT_ID, "connect -1");
  Code(AT(ScopeIsEquatorial)(), SCOPE_NOT_CONNECTED, "is equatorial, not connected");
  Code(AT(ScopeGetAxisPosition)(0, &angle), SCOPE_NOT_CONNECTED, "axis position, not connected");
  Code(AT(ScopeDisconnect)(), SCOPE_OK, "disconnect, not connected");
}

/* Aligned on one fixed star, the record is saved, the alignment dropped,
 * the record restored and read back the same; a damaged record is refused. */
static void AlignmentRecord(void) {
  const double star[4] = {0.5, 0.3, 0.52, 0.31};
  uint8_t saved[SCOPE_ALIGNMENT_RECORD_SIZE];
  uint8_t again[SCOPE_ALIGNMENT_RECORD_SIZE];
  memset(saved, 0, sizeof saved);
  memset(again, 0, sizeof again);
  Code(AT(ScopeAlignOneStar)(star), SCOPE_OK, "align on one star");
  Code(AT(ScopeGetAlignmentData)(saved), SCOPE_ALIGNMENT_RECORD_SIZE, "save the alignment");
  Code(AT(ScopeResetAlignment)(0.0, 0.0), SCOPE_OK, "reset the alignment");
  Code(AT(ScopeSetAlignmentData)(saved), SCOPE_OK, "restore the alignment");
  Code(AT(ScopeGetAlignmentData)(again), SCOPE_ALIGNMENT_RECORD_SIZE, "save it again");
  Check(memcmp(saved, again, sizeof saved) == 0, "the restored record reads back the same");
  DumpBytes(saved, sizeof saved);
  again[100] ^= 0x01;
  Code(AT(ScopeSetAlignmentData)(again), SCOPE_INVALID_ALIGNMENT_DATA, "a damaged record");
}

/* A short GOTO in declination from where the mount points (both start at
 * their home), to arrival and tracking; tracking off and on; an axis moved
 * and stopped. */
static void GotoTrackMoveStop(const char *model, double declinationStep) {
  double sky[2] = {0.0, 0.0};
  double target[2];
  double reached[2] = {0.0, 0.0};
  uint64_t started;
  Code(AT(ScopeGetSkyPosition)(sky), SCOPE_OK, "sky position");
  target[0] = sky[0];
  target[1] = sky[1] + declinationStep;
  started = NowMs();
  Code(AT(ScopeGotoEquatorial)(target[0], target[1]), SCOPE_OK, "GOTO");
  Check(WaitForState(SCOPE_STATE_TRACKING, GOTO_LIMIT_MS), "the GOTO ends tracking");
  Code(AT(ScopeGetSkyPosition)(reached), SCOPE_OK, "sky position after the GOTO");
  /* However slow the machine, the target has turned with the sky since. */
  target[0] += (double)(NowMs() - started) / 1000.0 * SIDEREAL_RATE;
  printf("%s: GOTO of %.0f degrees in %u ms, %.4f degree from the target\n", model,
         fabs(declinationStep) / DEGREE, (unsigned)(NowMs() - started),
         AT(ScopeAngularSeparation)(reached[0], reached[1], target[0], target[1]) / DEGREE);
  Check(AT(ScopeAngularSeparation)(reached[0], reached[1], target[0], target[1]) < 0.1 * DEGREE,
        "the GOTO arrives");
  Code(AT(ScopeSetTracking)(0), SCOPE_OK, "tracking off");
  Check(WaitForState(SCOPE_STATE_IDLE, GOTO_LIMIT_MS), "tracking stops");
  Code(AT(ScopeSetTracking)(1), SCOPE_OK, "tracking on");
  Check(WaitForState(SCOPE_STATE_TRACKING, GOTO_LIMIT_MS), "tracking starts again");
  Code(AT(ScopeMoveAxis)(1, 0.5 * DEGREE), SCOPE_OK, "move axis 1");
  Check(WaitForState(SCOPE_STATE_MOVING, GOTO_LIMIT_MS), "the mount moves by hand");
  Code(AT(ScopeStopAxis)(1), SCOPE_OK, "stop axis 1");
  /* The stopped axis soon tracks again, so its own status may never be
   * seen standing by a slow poll: the mount's state says the hand-back. */
  Check(WaitForState(SCOPE_STATE_TRACKING, GOTO_LIMIT_MS), "the stop hands back to tracking");
}

static void DisconnectMidSlew(void) {
  double sky[2] = {0.0, 0.0};
  Code(AT(ScopeGetSkyPosition)(sky), SCOPE_OK, "sky position");
  Code(AT(ScopeGotoEquatorial)(sky[0] + 30.0 * DEGREE, sky[1] - 20.0 * DEGREE), SCOPE_OK,
       "a long GOTO");
  Check(WaitForState(SCOPE_STATE_SLEWING, GOTO_LIMIT_MS), "the long GOTO slews");
  Code(AT(ScopeDisconnect)(), SCOPE_OK, "disconnect mid-slew");
  Code(AT(ScopeIsEquatorial)(), SCOPE_NOT_CONNECTED, "is equatorial after disconnect");
}

/* Greenwich mean sidereal time at 2000-01-01 12:00 UT is 18.697375 h; the
 * date goes by value through the boundary. */
static void PureCalculations(void) {
  SYSTEMTIME noon;
  double sidereal;
  memset(&noon, 0, sizeof noon);
  noon.wYear = 2000;
  noon.wMonth = 1;
  noon.wDay = 1;
  noon.wHour = 12;
  sidereal = AT(ScopeGetSiderealTime)(noon, 0.0, 0);
  Check(fabs(sidereal - 18.697375 * PI / 12.0) < 1e-4, "sidereal time");
  Check(fabs(AT(ScopeAngularSeparation)(0.0, 0.0, 1.0, 0.0) - 1.0) < 1e-12, "separation");
}

/* A hardware model through a serial port, as far as its controller
 * answers: every step goes over the line. */
static void SerialSession(int32_t port, int32_t model) {
  double axes[2] = {0.0, 0.0};
  double reached[2] = {0.0, 0.0};
  uint64_t started;
  AT(ScopeSetComPort)(port);
  Code(AT(ScopeConnect)(model, SITE_LATITUDE, SITE_ELEVATION), SCOPE_OK, "connect over the line");
  if (failures != 0) return;
  Code(AT(ScopeMoveAxis)(1, 0.5 * DEGREE), SCOPE_OK, "move axis 1");
  Check(WaitForState(SCOPE_STATE_MOVING, GOTO_LIMIT_MS), "the mount moves by hand");
  Code(AT(ScopeStopAxis)(1), SCOPE_OK, "stop axis 1");
  Check(WaitForAxisStopped(1, GOTO_LIMIT_MS), "axis 1 stops");
  Code(AT(ScopeGetAxisPositions)(axes), SCOPE_OK, "read both axes");
  started = NowMs();
  Code(AT(ScopeGotoAxes)(axes[0] + 2.0 * DEGREE, axes[1] + 2.0 * DEGREE), SCOPE_OK,
       "GOTO axis angles");
  /* Give the slew time to start (a short one may end between two looks), so
   * that the wait for its end does not see the state before it. */
  (void)WaitForState(SCOPE_STATE_SLEWING, 2000);
  Check(WaitForState(SCOPE_STATE_IDLE, GOTO_LIMIT_MS) ||
            WaitForState(SCOPE_STATE_TRACKING, 1000),
        "the GOTO ends");
  Code(AT(ScopeGetAxisPositions)(reached), SCOPE_OK, "read both axes after the GOTO");
  printf("GOTO of 2 degrees an axis in %u ms, now %.4f, %.4f rad\n",
         (unsigned)(NowMs() - started), reached[0], reached[1]);
  Check(fabs(reached[0] - axes[0] - 2.0 * DEGREE) < 0.1 * DEGREE &&
            fabs(reached[1] - axes[1] - 2.0 * DEGREE) < 0.1 * DEGREE,
        "the GOTO arrives");
  Code(AT(ScopeDisconnect)(), SCOPE_OK, "disconnect");
}

int main(int argc, char **argv) {
  ScopeDeviceHandle handle = NULL;
  if (argc < 2) {
    fprintf(stderr, "usage: ordinal_host <library> [dump-file]\n"
                    "       ordinal_host <library> --serial <port> <model>\n");
    return 2;
  }
  if (!BindAll(argv[1])) return 1;
  printf("bound %u functions\n", (unsigned)EXPORT_COUNT);
  if (argc == 5 && strcmp(argv[2], "--serial") == 0) {
    SerialSession((int32_t)atoi(argv[3]), (int32_t)atoi(argv[4]));
    printf("%s: %d failed check(s)\n", failures == 0 ? "PASS" : "FAIL", failures);
    return failures == 0 ? 0 : 1;
  }
  if (argc > 2 && (dump = fopen(argv[2], "wb")) == NULL) {
    printf("FAIL: cannot write %s\n", argv[2]);
    return 1;
  }

  Texts();
  NotConnected();
  PureCalculations();
  /* No Bluetooth device answers here (Windows has no port driver at all). */
  Code(AT(ScopeRegisterBluetoothPort)(0x11223344u, 0x5566u, 1, &handle), -1,
       "Bluetooth registration");
  Check(handle == NULL, "a failed registration leaves the handle");
  Code(AT(ScopeReleaseBluetoothPort)(NULL), SCOPE_INVALID_PARAMETER, "release no port");

  Code(AT(ScopeConnect)(SCOPE_MODEL_ALTAZ_SIMULATOR, SITE_LATITUDE, SITE_ELEVATION), SCOPE_OK,
       "connect the Alt/Az simulator");
  Code(AT(ScopeIsEquatorial)(), 0, "Alt/Az is not equatorial");
  Code(AT(ScopeConnect)(SCOPE_MODEL_EQUATORIAL_SIMULATOR, SITE_LATITUDE, SITE_ELEVATION),
       SCOPE_ALREADY_CONNECTED, "connect another model");
  AlignmentRecord();
  GotoTrackMoveStop("Alt/Az simulator", 15.0 * DEGREE);
  Code(AT(ScopeDisconnect)(), SCOPE_OK, "disconnect");

  Code(AT(ScopeConnect)(SCOPE_MODEL_EQUATORIAL_SIMULATOR, SITE_LATITUDE, SITE_ELEVATION),
       SCOPE_OK, "connect the equatorial simulator");
  Code(AT(ScopeIsEquatorial)(), 1, "equatorial");
  GotoTrackMoveStop("equatorial simulator", -10.0 * DEGREE);
  DisconnectMidSlew();

  if (dump != NULL) fclose(dump);
  printf("%s: %d failed check(s)\n", failures == 0 ? "PASS" : "FAIL", failures);
  return failures == 0 ? 0 : 1;
}
