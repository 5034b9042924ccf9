#include "celestial/matrix3.h"

#include <cmath>
#include <utility>

namespace scopemount {

namespace {

// A pivot must exceed this in size, or the matrix counts as singular.
constexpr double PIVOT_THRESHOLD = 1e-06;

// Gauss-Jordan with partial pivoting on the first two columns; applies the
// same row operations to r. Returns the product of the pivots, or 0.0 as
// soon as a pivot is too small (a is scratch afterwards).
double Eliminate(Matrix3& a, Matrix3& r) {
  int p = std::fabs(a.at(0, 0)) < std::fabs(a.at(1, 0)) ? 1 : 0;
  if (std::fabs(a.at(p, 0)) < std::fabs(a.at(2, 0))) p = 2;
  if (p != 0) {
    a.SwapRows(0, p);
    r.SwapRows(0, p);
  }
  if (std::fabs(a.at(0, 0)) <= PIVOT_THRESHOLD) return 0.0;
  for (int i = 1; i <= 2; ++i) {
    const double f = a.at(i, 0) / a.at(0, 0);
    for (int j = 0; j < 3; ++j) {
      if (j != 0) a.at(i, j) -= a.at(0, j) * f;
      r.at(i, j) -= r.at(0, j) * f;
    }
  }
  if (std::fabs(a.at(1, 1)) < std::fabs(a.at(2, 1))) {
    a.SwapRows(1, 2);
    r.SwapRows(1, 2);
  }
  if (std::fabs(a.at(1, 1)) <= PIVOT_THRESHOLD) return 0.0;
  {
    const double f = a.at(2, 1) / a.at(1, 1);
    a.at(2, 2) -= a.at(1, 2) * f;
    for (int j = 0; j < 3; ++j) r.at(2, j) -= r.at(1, j) * f;
  }
  if (std::fabs(a.at(2, 2)) <= PIVOT_THRESHOLD) return 0.0;
  for (int i = 0; i <= 1; ++i) {
    const double f = a.at(i, 2) / a.at(2, 2);
    for (int j = 0; j < 3; ++j) r.at(i, j) -= r.at(2, j) * f;
  }
  {
    const double f = a.at(0, 1) / a.at(1, 1);
    for (int j = 0; j < 3; ++j) r.at(0, j) -= r.at(1, j) * f;
  }
  double product = 1.0;
  for (int i = 0; i < 3; ++i) {
    product *= a.at(i, i);
    r.ScaleRow(i, 1.0 / a.at(i, i));
  }
  return product;
}

}  // namespace

Matrix3::Matrix3(double diagonal) {
  for (int i = 0; i < 3; ++i) m_[i][i] = diagonal;
}

void Matrix3::SetColumn(int column, double x, double y, double z) {
  m_[0][column] = x;
  m_[1][column] = y;
  m_[2][column] = z;
}

void Matrix3::SwapRows(int i, int j) { std::swap(m_[i], m_[j]); }

void Matrix3::ScaleRow(int i, double s) {
  for (double& e : m_[i]) e *= s;
}

Matrix3& Matrix3::MultiplyInPlace(const Matrix3& n) {
  Matrix3 product(0.0);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      double sum = 0.0;
      for (int k = 0; k < 3; ++k) sum += m_[i][k] * n.m_[k][j];
      product.m_[i][j] = sum;
    }
  }
  *this = product;
  return *this;
}

Vector3 Matrix3::Transform(const Vector3& v) const {
  return {m_[0][0] * v.x + m_[0][1] * v.y + m_[0][2] * v.z,
          m_[1][0] * v.x + m_[1][1] * v.y + m_[1][2] * v.z,
          m_[2][0] * v.x + m_[2][1] * v.y + m_[2][2] * v.z};
}

int Matrix3::Invert() {
  Matrix3 inverse(1.0);
  Matrix3 scratch = *this;
  if (Eliminate(scratch, inverse) == 0.0) return 1;
  *this = inverse;
  return 0;
}

Vector3 SphericalToUnitVector(const AnglePair& pair) {
  const double cosLat = std::cos(pair.lat);
  return {std::cos(pair.lon) * cosLat, std::sin(pair.lon) * cosLat, std::sin(pair.lat)};
}

AnglePair UnitVectorToSpherical(Vector3& v) {
  const double length = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
  v.x /= length;
  v.y /= length;
  v.z /= length;
  return {std::atan2(v.y, v.x), std::asin(v.z)};
}

AnglePair TransformDirection(const Matrix3& m, const AnglePair& pair) {
  Vector3 v = m.Transform(SphericalToUnitVector(pair));
  return UnitVectorToSpherical(v);
}

}  // namespace scopemount
