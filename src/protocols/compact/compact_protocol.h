// The compact mounts' wire format, in one place: single command bytes,
// some followed by a 24-bit number (most-significant byte first), and raw
// fixed-length replies for the two commands that return data. There is no
// framing, length or checksum. Header-only, so the emulated controller reads
// the same layout.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace scopemount::compact {

inline constexpr uint32_t BAUD_RATE = 4800;

// Command bytes of axis 0; axis 1 uses the same code plus AXIS1_OFFSET,
// except where a command exists for one axis only.
inline constexpr uint8_t AXIS1_OFFSET = 20;
inline constexpr uint8_t READ_POSITION = 1;      // reply: 3-byte count
inline constexpr uint8_t GOTO_COUNT = 2;         // number: target count
inline constexpr uint8_t STOP_GOTO = 5;          // ends a running GOTO
inline constexpr uint8_t RUN_POSITIVE = 6;       // number: rate number
inline constexpr uint8_t RUN_NEGATIVE = 7;       // number: rate number
inline constexpr uint8_t START_UP_COUNT = 10;    // number: a count, 0 at start-up
inline constexpr uint8_t SET_REVOLUTION = 12;    // number: counts per revolution
inline constexpr uint8_t READ_GOTO_STATUS = 13;  // axis 0 only; reply: 1 byte
inline constexpr uint8_t START_UP_STEP = 14;     // axis 0 only; number: count of 2 degrees
inline constexpr uint8_t LOAD_ALTITUDE = 24;     // axis 1 only; number: position count

// Replies.
inline constexpr uint32_t POSITION_REPLY_LENGTH = 3;
inline constexpr uint32_t STATUS_REPLY_LENGTH = 1;
inline constexpr uint32_t LONGEST_REPLY = POSITION_REPLY_LENGTH;
inline constexpr uint8_t GOTO_ENDED = 0xFF;

// Numbers.
inline constexpr uint32_t NUMBER_LENGTH = 3;
inline constexpr uint32_t LONGEST_COMMAND = 1 + NUMBER_LENGTH;
inline constexpr uint32_t LARGEST_NUMBER = 0xFFFFFF;

// Gearing of the two mount sizes: motor counts per axis revolution.
inline constexpr uint32_t SMALL_COUNTS_PER_REVOLUTION = 726559;
inline constexpr uint32_t LARGE_COUNTS_PER_REVOLUTION = 1059334;

// The board's GOTO speed, 8 degrees a second, in rad/s.
inline constexpr double GOTO_SPEED = 0.13962634015954636;

constexpr uint8_t CommandFor(uint8_t axis0Code, uint32_t axis) {
  return static_cast<uint8_t>(axis == 0 ? axis0Code : axis0Code + AXIS1_OFFSET);
}

// Writes `code` and, big-endian, the low 24 bits of `number`; returns the
// command's length (4).
inline uint32_t EncodeNumberCommand(uint8_t code, uint32_t number, uint8_t* out) {
  out[0] = code;
  out[1] = static_cast<uint8_t>(number >> 16);
  out[2] = static_cast<uint8_t>(number >> 8);
  out[3] = static_cast<uint8_t>(number);
  return LONGEST_COMMAND;
}

inline uint32_t DecodeNumber(const uint8_t* bytes) {
  return (uint32_t{bytes[0]} << 16) | (uint32_t{bytes[1]} << 8) | uint32_t{bytes[2]};
}

// Number bytes that follow `code` (0 or NUMBER_LENGTH); -1 for a byte that
// is no command of the protocol.
constexpr int DataLength(uint8_t code) {
  switch (code) {
    case READ_POSITION: case READ_POSITION + AXIS1_OFFSET:
    case STOP_GOTO: case STOP_GOTO + AXIS1_OFFSET:
    case READ_GOTO_STATUS:
      return 0;
    case GOTO_COUNT: case GOTO_COUNT + AXIS1_OFFSET:
    case RUN_POSITIVE: case RUN_POSITIVE + AXIS1_OFFSET:
    case RUN_NEGATIVE: case RUN_NEGATIVE + AXIS1_OFFSET:
    case START_UP_COUNT: case START_UP_COUNT + AXIS1_OFFSET:
    case SET_REVOLUTION: case SET_REVOLUTION + AXIS1_OFFSET:
    case START_UP_STEP: case LOAD_ALTITUDE:
      return static_cast<int>(NUMBER_LENGTH);
    default:
      return -1;
  }
}

// Truncation toward zero of a non-negative value onto the wire's range;
// anything not a finite number is 0.
inline uint32_t WireNumber(double value) {
  if (!std::isfinite(value) || value <= 0.0) return 0;
  if (value >= static_cast<double>(LARGEST_NUMBER)) return LARGEST_NUMBER;
  return static_cast<uint32_t>(value);
}

}  // namespace scopemount::compact
