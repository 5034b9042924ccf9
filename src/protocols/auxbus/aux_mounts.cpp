#include "protocols/auxbus/aux_mounts.h"

namespace scopemount {

AuxAltAzMount::AuxAltAzMount() {
  modelId = MODEL;
  gotoTolerance = GOTO_TOLERANCE;
  approachMargin = AUX_APPROACH_MARGIN;
  approachOvershoot = APPROACH_OVERSHOOT;
  slewLeadTime = SLEW_LEAD_TIME;
}

int32_t AuxAltAzMount::OpenMount() {
  const int32_t opened = AuxBusMount::OpenMount();
  if (opened != Ok) return opened;
  // A controller that stops answering here is found by the next command.
  StopAxisMotor(0);
  StopAxisMotor(1);
  double ignored = 0.0;
  GetAxisPosition(0, &ignored);
  GetAxisPosition(1, &ignored);
  return Ok;
}

AuxEquatorialMount::AuxEquatorialMount() {
  modelId = MODEL;
  isEquatorial = 1;
  gotoTolerance = GOTO_TOLERANCE;
  approachMargin = AUX_APPROACH_MARGIN;
  approachOvershoot = APPROACH_OVERSHOOT;
  slewLeadTime = SLEW_LEAD_TIME;
}

// Not reduced afterwards: the hour-angle axis reads in [-2pi, 0).
int32_t AuxEquatorialMount::ReadAxisPosition(uint32_t axis) {
  const int32_t result = AuxBusMount::ReadAxisPosition(axis);
  if (result != Ok) return result;
  if (axis == 0) {
    axisPosition[0] = axisPosition[0] - PI;
  } else if (axisPosition[1] < MIN_DECLINATION_AXIS_ANGLE) {
    axisPosition[1] = axisPosition[1] + TWO_PI;
  }
  return Ok;
}

int32_t AuxEquatorialMount::SlewAxisTo(uint32_t axis, double angle) {
  const double sent = axis == 0 ? NormalizeAngle(angle + PI) : NormalizeAngle(angle);
  return SlewAxisToSending(axis, angle, sent);
}

// The slew compares targets with positions as read: a target of +10
// degrees would otherwise be 370 degrees from where the axis reads -350
// and never be reached. The same place, counted the way the axis reads.
int32_t AuxEquatorialMount::GotoAxes(double angle0, double angle1) {
  return EquatorialMount::GotoAxes(NormalizeAngle(angle0 + PI) - PI, angle1);
}

int32_t AuxEquatorialMount::SetAxisPosition(uint32_t axis, double angle) {
  return AuxBusMount::SetAxisPosition(axis, axis == 0 ? angle + PI : angle);
}

}  // namespace scopemount
