// The motor-controller protocol's byte layouts, in one place: frames,
// command letters, motion modes, status digits and the hexadecimal number
// form. Header-only, so the controller emulator speaks from the same table.
//
//   command  ':' letter axis data... '\r'     axis '1' (RA/Az) or '2' (Dec/Alt)
//   reply    '=' payload... '\r'              done (payload: data, if any)
//            '!' payload... '\r'              refused (payload not examined)
//
//   letter  data sent            reply payload
//   e       -                    version (six digits)
//   a       -                    counts per revolution
//   b       -                    timer frequency
//   g       -                    high-speed ratio
//   s       -                    counts per worm period
//   j       -                    position + 0x800000
//   f       -                    three status digits
//   F       -                    -        initialise the axis
//   G       mode, direction      -        motion mode of the next J
//   H       count (6 digits)     -        length of a GOTO
//   M       count (6 digits)     -        brake steps of a GOTO
//   I       period (6 digits)    -        step period in timer ticks
//   J       -                    -        start the motion set up
//   K       -                    -        decelerating stop
//   L       -                    -        instant stop
//   E       position + 0x800000  -        declare the position
//
// Numbers travel least-significant byte first, each byte as two upper-case
// hexadecimal digits, high nibble first: 0x123456 is "563412".
#pragma once

#include <cstddef>
#include <cstdint>

namespace scopemount::motorcontroller {

inline constexpr uint8_t COMMAND_START = ':';
inline constexpr uint8_t REPLY_DONE = '=';
inline constexpr uint8_t REPLY_REFUSED = '!';
inline constexpr uint8_t FRAME_END = '\r';

inline constexpr uint8_t AXIS_CHARACTERS[2] = {'1', '2'};

// Command letters.
inline constexpr uint8_t READ_VERSION = 'e';
inline constexpr uint8_t READ_COUNTS_PER_REVOLUTION = 'a';
inline constexpr uint8_t READ_TIMER_FREQUENCY = 'b';
inline constexpr uint8_t READ_HIGH_SPEED_RATIO = 'g';
inline constexpr uint8_t READ_WORM_STEPS = 's';
inline constexpr uint8_t READ_POSITION = 'j';
inline constexpr uint8_t READ_STATUS = 'f';
inline constexpr uint8_t INITIALISE_AXIS = 'F';
inline constexpr uint8_t SET_MOTION_MODE = 'G';
inline constexpr uint8_t SET_GOTO_COUNT = 'H';
inline constexpr uint8_t SET_BRAKE_STEPS = 'M';
inline constexpr uint8_t SET_STEP_PERIOD = 'I';
inline constexpr uint8_t START_MOTION = 'J';
inline constexpr uint8_t STOP_MOTION = 'K';
inline constexpr uint8_t STOP_INSTANTLY = 'L';
inline constexpr uint8_t DECLARE_POSITION = 'E';

// G's first character: the motion mode.
inline constexpr uint8_t MODE_HIGH_SPEED_GOTO = '0';
inline constexpr uint8_t MODE_LOW_SPEED_RATE = '1';
inline constexpr uint8_t MODE_LOW_SPEED_GOTO = '2';
inline constexpr uint8_t MODE_HIGH_SPEED_RATE = '3';
// G's second character: the direction, with SOUTHERN_BIT set on a southern
// site.
inline constexpr uint8_t DIRECTION_POSITIVE = '0';
inline constexpr uint8_t DIRECTION_NEGATIVE = '1';
inline constexpr uint8_t SOUTHERN_BIT = 2;

// The three status digits of an f reply, tested by their low bits.
inline constexpr uint8_t STATUS_RATE_MODE = 1;      // digit 1: running at a rate (else GOTO)
inline constexpr uint8_t STATUS_NEGATIVE = 2;       // digit 1: negative direction
inline constexpr uint8_t STATUS_HIGH_SPEED = 4;     // digit 1: high-speed mode
inline constexpr uint8_t STATUS_RUNNING = 1;        // digit 2: the axis moves
inline constexpr uint8_t STATUS_INITIALISED = 1;    // digit 3: the axis was initialised
inline constexpr size_t STATUS_DIGITS = 3;

// Positions travel as 24-bit numbers offset so that angle 0 is mid-range.
inline constexpr int32_t POSITION_OFFSET = 0x800000;
inline constexpr uint32_t WIRE_NUMBER_MASK = 0xFFFFFF;
inline constexpr size_t NUMBER_DIGITS = 6;
inline constexpr size_t MODE_DIGITS = 2;

// Buffer sizes: a command holds at most 16 data characters; a reply the
// start character, up to 13 payload characters, '\r' and a zero byte.
inline constexpr size_t COMMAND_BUFFER_SIZE = 20;
inline constexpr size_t MAX_COMMAND_DATA = COMMAND_BUFFER_SIZE - 4;
inline constexpr size_t REPLY_BUFFER_SIZE = 16;
inline constexpr size_t MAX_REPLY_PAYLOAD = REPLY_BUFFER_SIZE - 3;

inline constexpr char HEX_DIGITS[] = "0123456789ABCDEF";

// The six characters of the low 24 bits of `value` (two's complement for a
// negative one).
inline void EncodeHex24(int64_t value, uint8_t out[NUMBER_DIGITS]) {
  const uint32_t v = static_cast<uint32_t>(value) & WIRE_NUMBER_MASK;
  for (size_t byte = 0; byte < 3; ++byte) {
    const uint32_t b = (v >> (8 * byte)) & 0xFF;
    out[2 * byte] = static_cast<uint8_t>(HEX_DIGITS[b >> 4]);
    out[2 * byte + 1] = static_cast<uint8_t>(HEX_DIGITS[b & 0xF]);
  }
}

// 0..15 for an upper-case hexadecimal digit, -1 for anything else.
constexpr int HexDigitValue(uint8_t c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Reads one, two or three bytes from the digits of `payload` (the
// characters after the start character), stopping where '\r' follows a
// complete byte. False when a digit position holds anything else. Needs a
// '\r' or zero-terminated payload: it never reads past the first character
// that is not a digit.
inline bool DecodeHex(const uint8_t* payload, uint32_t* value) {
  uint32_t result = 0;
  for (size_t byte = 0; byte < 3; ++byte) {
    const int high = HexDigitValue(payload[2 * byte]);
    if (high < 0) return false;
    const int low = HexDigitValue(payload[2 * byte + 1]);
    if (low < 0) return false;
    result |= static_cast<uint32_t>(high << 4 | low) << (8 * byte);
    if (byte < 2 && payload[2 * byte + 2] == FRAME_END) break;
  }
  *value = result;
  return true;
}

// Writes the frame of `letter` to `axis` (0 or 1) with `count` data
// characters into `out` (COMMAND_BUFFER_SIZE bytes); returns its length.
inline size_t BuildCommand(uint8_t letter, uint32_t axis, const uint8_t* data, size_t count,
                           uint8_t out[COMMAND_BUFFER_SIZE]) {
  if (count > MAX_COMMAND_DATA) count = MAX_COMMAND_DATA;
  size_t n = 0;
  out[n++] = COMMAND_START;
  out[n++] = letter;
  out[n++] = AXIS_CHARACTERS[axis & 1];
  for (size_t i = 0; i < count; ++i) out[n++] = data[i];
  out[n++] = FRAME_END;
  return n;
}

}  // namespace scopemount::motorcontroller
