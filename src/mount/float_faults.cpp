#include "mount/float_faults.h"

#include <cmath>

namespace scopemount {

namespace {

constexpr int FAULT_FLAGS = FE_DIVBYZERO | FE_OVERFLOW | FE_UNDERFLOW;

}  // namespace

FaultWatch::FaultWatch() {
  std::fegetexceptflag(&callerFlags_, FE_ALL_EXCEPT);
  std::feclearexcept(FAULT_FLAGS);
}

FaultWatch::~FaultWatch() { std::fesetexceptflag(&callerFlags_, FE_ALL_EXCEPT); }

double FaultWatch::Check(double value) {
  const int kind = std::fpclassify(value);
  if (kind == FP_INFINITE || kind == FP_NAN || kind == FP_SUBNORMAL) faulted_ = true;
  return value;
}

void FaultWatch::Check(const Vector3& v) {
  Check(v.x);
  Check(v.y);
  Check(v.z);
}

void FaultWatch::Check(const Matrix3& m) {
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) Check(m.at(i, j));
  }
}

bool FaultWatch::Faulted() {
  if (std::fetestexcept(FAULT_FLAGS) != 0) faulted_ = true;
  return faulted_;
}

}  // namespace scopemount
