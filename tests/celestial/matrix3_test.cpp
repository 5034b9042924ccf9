#include "celestial/matrix3.h"

#include <gtest/gtest.h>

#include <cmath>

#include "celestial/angles.h"
#include "support/angles.h"

namespace scopemount {
namespace {

Matrix3 Rows(std::initializer_list<std::initializer_list<double>> rows) {
  Matrix3 m(0.0);
  int i = 0;
  for (const auto& row : rows) {
    int j = 0;
    for (double v : row) m.at(i, j++) = v;
    ++i;
  }
  return m;
}

TEST(Matrix3, DiagonalConstructionAndRowOperations) {
  const Matrix3 identity(1.0);
  EXPECT_EQ(identity, Rows({{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}));
  EXPECT_EQ(Matrix3(-1.0), Rows({{-1, 0, 0}, {0, -1, 0}, {0, 0, -1}}));
  Matrix3 m(0.0);
  m.SetColumn(1, 1, 2, 3);
  m.SwapRows(0, 2);
  m.ScaleRow(0, 2.0);
  EXPECT_EQ(m, Rows({{0, 6, 0}, {0, 2, 0}, {0, 1, 0}}));
}

TEST(Matrix3, ProductKeepsTheOrderAndTransformSumsRows) {
  const double c = std::cos(0.3), s = std::sin(0.3);
  const Matrix3 aboutZ = Rows({{c, -s, 0}, {s, c, 0}, {0, 0, 1}});
  const Matrix3 aboutX = Rows({{1, 0, 0}, {0, c, -s}, {0, s, c}});
  Matrix3 ab = aboutZ;
  ab.MultiplyInPlace(aboutX);
  Matrix3 ba = aboutX;
  ba.MultiplyInPlace(aboutZ);
  EXPECT_GT(std::fabs(ab.at(0, 1) - ba.at(0, 1)), 1e-3) << "rotations do not commute";
  Matrix3 unchanged = aboutZ;
  unchanged.MultiplyInPlace(Matrix3(1.0));
  EXPECT_EQ(unchanged, aboutZ);
  const Vector3 v = Rows({{1, 2, 3}, {4, 5, 6}, {7, 8, 9}}).Transform({1, 0, -1});
  EXPECT_EQ(v.x, -2);
  EXPECT_EQ(v.y, -2);
  EXPECT_EQ(v.z, -2);
}

TEST(Matrix3, InvertSucceedsOrLeavesTheMatrixAlone) {
  Matrix3 identity(1.0);
  EXPECT_EQ(identity.Invert(), 0);
  EXPECT_EQ(identity, Matrix3(1.0));

  Matrix3 swap = Rows({{0, 1, 0}, {1, 0, 0}, {0, 0, 1}});
  EXPECT_EQ(swap.Invert(), 0) << "pivot search must swap rows 0 and 1";
  EXPECT_EQ(swap, Rows({{0, 1, 0}, {1, 0, 0}, {0, 0, 1}}));

  const Matrix3 zeroRow = Rows({{1, 2, 3}, {0, 0, 0}, {4, 5, 6}});
  Matrix3 m = zeroRow;
  EXPECT_EQ(m.Invert(), 1);
  EXPECT_EQ(m, zeroRow) << "a singular matrix keeps its value";

  Matrix3 tiny = Rows({{1e-6, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  EXPECT_EQ(tiny.Invert(), 1) << "1e-6 is not above the pivot threshold";
  Matrix3 small = Rows({{2e-6, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  EXPECT_EQ(small.Invert(), 0);
  EXPECT_NEAR(small.at(0, 0), 500000.0, 1e-6);

  // A general matrix: the inverse times the matrix is the identity.
  const Matrix3 general = Rows({{2, -1, 0.5}, {1, 3, -2}, {0.3, 0.7, 4}});
  Matrix3 inverse = general;
  ASSERT_EQ(inverse.Invert(), 0);
  inverse.MultiplyInPlace(general);
  ExpectMatrixNear(inverse, Matrix3(1.0), 1e-14, "inverse x matrix");
}

TEST(Matrix3, GeometryDefaultMatrixIsItsOwnInverse) {
  for (double phi : {-1.5, -0.6, 0.0, 0.5235987755982988, 1.2, 1.57}) {
    const double s = std::sin(phi), c = std::cos(phi);
    const Matrix3 nominal = Rows({{-s, 0, c}, {0, -1, 0}, {c, 0, s}});
    Matrix3 inverse = nominal;
    ASSERT_EQ(inverse.Invert(), 0) << phi;
    ExpectMatrixNear(inverse, nominal, 1e-14, "symmetric orthogonal");
  }
}

TEST(Directions, UnitVectorRoundTripsAndFolding) {
  const Vector3 x = SphericalToUnitVector({0, 0});
  EXPECT_EQ(x.x, 1.0);
  EXPECT_EQ(x.y, 0.0);
  EXPECT_EQ(x.z, 0.0);
  const Vector3 y = SphericalToUnitVector({PI / 2, 0});
  EXPECT_NEAR(y.x, 0.0, 1e-16);
  EXPECT_NEAR(y.y, 1.0, 1e-16);
  const Vector3 pole = SphericalToUnitVector({2.5, PI / 2});
  EXPECT_NEAR(pole.z, 1.0, 1e-16);
  EXPECT_NEAR(std::hypot(pole.x, pole.y), 0.0, 1e-16);

  Vector3 up{0, 0, 2};
  const AnglePair upAngles = UnitVectorToSpherical(up);
  EXPECT_EQ(up.z, 1.0) << "the caller's vector is left normalised";
  EXPECT_EQ(upAngles.lon, 0.0);
  EXPECT_EQ(upAngles.lat, PI / 2);
  Vector3 back{-1, 0, 0};
  EXPECT_EQ(UnitVectorToSpherical(back).lon, PI);
  Vector3 backNegativeZero{-1, -0.0, 0};
  EXPECT_EQ(UnitVectorToSpherical(backNegativeZero).lon, -PI) << "the sign of a zero y decides";

  const AnglePair same = TransformDirection(Matrix3(1.0), {0.4, -0.9});
  EXPECT_NEAR(same.lon, 0.4, 1e-15);
  EXPECT_NEAR(same.lat, -0.9, 1e-15);
  const AnglePair folded = TransformDirection(Matrix3(1.0), {0.5, 2.0});
  EXPECT_NEAR(folded.lon, 0.5 - PI, 1e-15);
  EXPECT_NEAR(folded.lat, PI - 2.0, 1e-15);
}

}  // namespace
}  // namespace scopemount
