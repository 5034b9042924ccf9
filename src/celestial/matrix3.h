// Unit vectors and 3x3 matrices: every frame change of the library is a
// rotation of a direction with one of these.
#pragma once

#include <array>

namespace scopemount {

struct Vector3 {
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
};

// A direction as two angles, longitude-like first.
struct AnglePair {
  double lon = 0.0;
  double lat = 0.0;
};

class Matrix3 {
 public:
  explicit Matrix3(double diagonal = 1.0);

  double& at(int row, int column) { return m_[row][column]; }
  double at(int row, int column) const { return m_[row][column]; }

  void SetColumn(int column, double x, double y, double z);
  void SwapRows(int i, int j);
  void ScaleRow(int i, double s);
  // this = this x n.
  Matrix3& MultiplyInPlace(const Matrix3& n);
  Vector3 Transform(const Vector3& v) const;
  // Replaces this by its inverse and returns 0, or returns 1 and leaves this
  // unchanged when a pivot is at most 1e-6 in size.
  int Invert();

  bool operator==(const Matrix3& other) const = default;

 private:
  std::array<std::array<double, 3>, 3> m_{};
};

Vector3 SphericalToUnitVector(const AnglePair& pair);
// Normalises v in place, then returns its angles (lon in [-pi, pi]).
AnglePair UnitVectorToSpherical(Vector3& v);
AnglePair TransformDirection(const Matrix3& m, const AnglePair& pair);

}  // namespace scopemount
