// The compact mounts' motor board on the bench: single-byte commands, some
// with a 24-bit number, raw position and GOTO-status replies.
//
// Positions are motor counts that wrap at the revolution count. The board
// starts with the small mount's gearing and takes the host's revolution
// count at start-up, so one model serves both sizes: its GOTO speed is 8
// degrees a second of whichever gearing it was told. A GOTO takes the short
// way round. Bytes that are no command of the protocol are dropped.
#pragma once

#include <cstddef>
#include <cstdint>

#include "axis_motion.h"
#include "controller_model.h"
#include "protocols/compact/compact_protocol.h"

namespace scopemount::emulation {

class CompactController final : public ControllerModel {
 public:
  explicit CompactController(uint32_t countsPerRevolution = compact::SMALL_COUNTS_PER_REVOLUTION);

  void Receive(const uint8_t* bytes, size_t count, uint64_t nowMs, ReplySink& sink) override;

  // The count the board would report now.
  uint32_t Count(uint32_t axis, uint64_t nowMs);
  bool IsMoving(uint32_t axis, uint64_t nowMs) { return axes_[axis].IsMoving(nowMs); }
  uint32_t CountsPerRevolution() const { return countsPerRevolution_; }

 private:
  void Execute(uint64_t nowMs, ReplySink& sink);
  void ReplyCount(uint32_t axis, uint64_t nowMs, ReplySink& sink);
  void GoTo(uint32_t axis, uint32_t target, uint64_t nowMs);
  double GotoSpeed() const;

  uint32_t countsPerRevolution_;
  AxisMotion axes_[2]{AxisMotion(1.0), AxisMotion(1.0)};
  uint8_t command_[compact::LONGEST_COMMAND] = {};
  size_t received_ = 0;
};

}  // namespace scopemount::emulation
