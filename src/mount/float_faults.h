// Floating-point faults of the alignment fits: a division by zero, an
// overflow, an underflow or a subnormal operand must end the fit with a
// failure code instead of leaving an infinity or a NaN in the pointing
// model. Nothing traps on a soft-float build, so the fits check their
// intermediates here; the <cfenv> exception flags are consulted as well
// where the hardware keeps them.
#pragma once

#include <cfenv>

#include "celestial/matrix3.h"

namespace scopemount {

class FaultWatch {
 public:
  // Saves the caller's exception flags and starts from clear ones.
  FaultWatch();
  // Gives the caller its flags back.
  ~FaultWatch();
  FaultWatch(const FaultWatch&) = delete;
  FaultWatch& operator=(const FaultWatch&) = delete;

  // Notes a fault when `value` is infinite, NaN or subnormal; returns it.
  double Check(double value);
  void Check(const Vector3& v);
  void Check(const Matrix3& m);
  // True once a checked value or the exception flags showed a fault.
  bool Faulted();

 private:
  std::fexcept_t callerFlags_;
  bool faulted_ = false;
};

}  // namespace scopemount
