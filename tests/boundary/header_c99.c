/* A C99 program that uses the public header the way a host application
 * would: no mount, the pure calculations, texts and port selection. */
#include <stdio.h>
#include <string.h>

#include "scopemount.h"

static int failures = 0;

static void expect(int condition, const char *what) {
  if (!condition) {
    fprintf(stderr, "FAILED: %s\n", what);
    ++failures;
  }
}

int main(void) {
  ScopeChar16 text[SCOPE_TEXT_BUFFER_UNITS];
  SYSTEMTIME noon = {2000, 1, 6, 1, 12, 0, 0, 0};
  double sidereal = ScopeGetSiderealTime(noon, 0.0, 0);
  uint32_t status = 0;

  expect(ScopeGetModelName(SCOPE_MODEL_ALTAZ_SIMULATOR, text) == SCOPE_OK, "model name");
  expect(text[0] == 'A' && text[1] == 'l' && text[2] == 't', "model name text");
  expect(ScopeGetModelName(SCOPE_MODEL_COUNT, text) == SCOPE_INVALID_MOUNT_ID, "bad model");
  ScopeGetErrorText(SCOPE_NOT_CONNECTED, text);
  expect(text[0] == 'H', "error text");
  expect(ScopeGetMountStatus(&status) == SCOPE_NOT_CONNECTED, "not connected");
  expect(ScopeDisconnect() == SCOPE_OK, "disconnect");
  expect(sidereal > 4.8949 && sidereal < 4.8950, "sidereal time");
  expect(ScopeAngularSeparation(0.0, 0.0, 1.0, 0.0) > 0.999, "separation");
  ScopeSetComPort(3);
  expect(ScopeSetPortPath(3, "/dev/null") == SCOPE_OK, "port path");
  expect(ScopeSetPortPath(256, "/dev/null") == SCOPE_INVALID_PARAMETER, "port range");
  if (failures == 0) printf("C99 header: all checks passed\n");
  return failures == 0 ? 0 : 1;
}
