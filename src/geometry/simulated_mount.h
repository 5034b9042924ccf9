// A geometry layer completed with software motors in place of a protocol
// layer: what both simulators share. The concrete simulators add their
// model number, tuning and home position.
#pragma once

#include <cstdint>

#include "geometry/simulated_motors.h"
#include "mount/mount.h"

namespace scopemount {

template <typename GeometryLayer>
class SimulatedMount : public GeometryLayer {
 public:
  int32_t ReadAxisPosition(uint32_t axis) override { return motors_.ReadPosition(axis); }
  int32_t ReadAxisStatus(uint32_t axis) override { return motors_.ReadStatus(axis); }
  int32_t SetAxisRate(uint32_t axis, double rate) override { return motors_.SetRate(axis, rate); }
  int32_t SlewAxisTo(uint32_t axis, double angle) override { return motors_.SlewTo(axis, angle); }
  int32_t StopAxisMotor(uint32_t axis) override { return motors_.Stop(axis); }
  int32_t SetAxisPosition(uint32_t axis, double angle) override {
    return motors_.SetPosition(axis, angle);
  }
  // A manual motion starts from a standing axis.
  int32_t MoveAxis(uint32_t axis, double rate) override {
    this->StopAxisMotor(axis);
    return GeometryLayer::MoveAxis(axis, rate);
  }

 protected:
  // `slewSpeed` in radians per second; the axes start standing at `home`.
  SimulatedMount(double slewSpeed, AnglePair home) : motors_(*this, slewSpeed, home) {}

 private:
  SimulatedMotors motors_;
};

}  // namespace scopemount
