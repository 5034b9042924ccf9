// Angle units, a separation and a matrix comparison for tests, written once.
#pragma once

#include <gtest/gtest.h>

#include "celestial/angles.h"
#include "celestial/matrix3.h"

namespace scopemount {
inline namespace test_angles {

inline constexpr double DEG = PI / 180.0;
inline constexpr double ARCMIN = DEG / 60.0;
inline constexpr double ARCSEC = DEG / 3600.0;
inline constexpr double HOUR = 15.0 * DEG;  // of right ascension or hour angle

inline double Separation(const AnglePair& a, const AnglePair& b) {
  return AngularSeparation(a.lon, a.lat, b.lon, b.lat);
}

// Every element of `actual` within `tolerance` of `expected`.
inline void ExpectMatrixNear(const Matrix3& actual, const Matrix3& expected, double tolerance,
                             const char* what = "") {
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      EXPECT_NEAR(actual.at(i, j), expected.at(i, j), tolerance)
          << what << " [" << i << "][" << j << "]";
    }
  }
}

}  // namespace test_angles
}  // namespace scopemount
