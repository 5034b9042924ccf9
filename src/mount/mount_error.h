// Result codes, axis status bits and mount states shared by every layer.
#pragma once

#include <cstdint>

namespace scopemount {

enum MountError : int32_t {
  Ok = 0,
  InvalidMountId = 1,
  AlreadyConnected = 2,
  NotConnected = 3,
  InvalidParameter = 4,
  SerialPortBusy = 5,
  NoResponseAxis1 = 100,
  NoResponseAxis2 = 101,
  AxisBusy = 102,
  TargetTooHigh = 103,
  TargetTooLow = 104,
  UserInterrupt = 105,
  AlignFailed = 200,
  NotImplemented = 300,
  InvalidAlignmentData = 400,
};

// axisStatus bits.
inline constexpr uint32_t AXIS_STOPPED = 1;
inline constexpr uint32_t AXIS_RUNNING = 2;
inline constexpr uint32_t AXIS_SLEWING = 4;
inline constexpr uint32_t AXIS_POSITIVE = 8;
inline constexpr uint32_t AXIS_HIGH_SPEED = 16;
inline constexpr uint32_t AXIS_STATUS_MASK = 31;

// mountState values (one at a time, kept as bits).
inline constexpr uint32_t STATE_IDLE = 1;
inline constexpr uint32_t STATE_TRACKING = 2;
inline constexpr uint32_t STATE_SLEWING = 4;
inline constexpr uint32_t STATE_MOVING = 8;
inline constexpr uint32_t MOUNT_STATE_MASK = 15;

inline constexpr uint32_t AXIS_COUNT = 2;

}  // namespace scopemount
