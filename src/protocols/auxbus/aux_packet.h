// The AUX bus on the wire: packet layout, addresses, command numbers and the
// fixed-point encodings, all in one place. Header-only and free of the
// library's state, so the bus emulator speaks exactly the same bytes.
//
// A packet, in either direction:
//   0x3B | L | source | destination | command | data (L - 3 bytes) | checksum
// where L counts source, destination, command and data, and the checksum
// makes bytes 1 .. end sum to 0 modulo 256.
#pragma once

#include <cstddef>
#include <cstdint>

namespace scopemount::auxbus {

inline constexpr uint8_t PACKET_START = 0x3B;  // ';'

// Bus addresses: the library, and the motor controller of each axis.
inline constexpr uint8_t HOST_ADDRESS = 0x32;
inline constexpr uint8_t AXIS_ADDRESS[2] = {0x10, 0x11};

// Command numbers.
inline constexpr uint8_t CMD_GET_POSITION = 0x01;      // reply: 3-byte angle
inline constexpr uint8_t CMD_GOTO_FAST = 0x02;         // 3-byte angle
inline constexpr uint8_t CMD_SET_POSITION = 0x04;      // 3-byte angle
inline constexpr uint8_t CMD_RATE_POSITIVE = 0x06;     // 3-byte rate
inline constexpr uint8_t CMD_RATE_NEGATIVE = 0x07;     // 3-byte rate
inline constexpr uint8_t CMD_SETTING_POSITIVE = 0x10;  // 1 byte
inline constexpr uint8_t CMD_SETTING_NEGATIVE = 0x11;  // 1 byte
inline constexpr uint8_t CMD_SLEW_DONE = 0x13;         // reply: 1 byte, 0 while slewing
inline constexpr uint8_t CMD_GOTO_SLOW = 0x17;         // 3-byte angle
inline constexpr uint8_t CMD_APPROACH = 0xFD;          // 1 byte: 1 approaches from above
inline constexpr uint8_t CMD_GET_VERSION = 0xFE;       // reply: major, minor

// Offsets in a packet.
inline constexpr size_t LENGTH_OFFSET = 1;
inline constexpr size_t SOURCE_OFFSET = 2;
inline constexpr size_t DESTINATION_OFFSET = 3;
inline constexpr size_t COMMAND_OFFSET = 4;
inline constexpr size_t DATA_OFFSET = 5;
// L counts the three header bytes besides the data.
inline constexpr uint8_t HEADER_LENGTH = 3;
// Framing bytes outside L: start, length, checksum.
inline constexpr size_t FRAMING_BYTES = 3;

// The longest reply the library accepts, and the buffer that holds it.
inline constexpr uint8_t MAX_REPLY_LENGTH = 29;
inline constexpr size_t REPLY_BUFFER_SIZE = MAX_REPLY_LENGTH + FRAMING_BYTES;
// The library never sends more than three data bytes.
inline constexpr size_t MAX_COMMAND_DATA = 3;
inline constexpr size_t MAX_PACKET_SIZE = REPLY_BUFFER_SIZE;

// Angles: a signed 24-bit fraction of one turn. Rates: quarter arcseconds
// per second, shifted left by 8 on the wire.
inline constexpr int32_t COUNTS_PER_HALF_TURN = 0x800000;
inline constexpr uint32_t FIELD_MASK = 0xFFFFFF;
inline constexpr int32_t RATE_WIRE_SHIFT = 256;

// Byte 1 .. end of a packet sum to zero with this as the last byte.
constexpr uint8_t Checksum(const uint8_t* bytes, size_t count) {
  uint32_t sum = 0;
  for (size_t i = LENGTH_OFFSET; i < count; ++i) sum += bytes[i];
  return static_cast<uint8_t>(0x100 - (sum & 0xFF));
}

// Bits 16-23, 8-15 and 0-7 of `value`, in that order.
constexpr void PutBigEndian24(uint32_t value, uint8_t* bytes) {
  bytes[0] = static_cast<uint8_t>(value >> 16);
  bytes[1] = static_cast<uint8_t>(value >> 8);
  bytes[2] = static_cast<uint8_t>(value);
}

// Three bytes, most significant first, sign-extended from bit 23.
constexpr int32_t GetSigned24(const uint8_t* bytes) {
  const int32_t raw = (int32_t{bytes[0]} << 16) | (int32_t{bytes[1]} << 8) | bytes[2];
  return (raw & COUNTS_PER_HALF_TURN) != 0 ? raw - 2 * COUNTS_PER_HALF_TURN : raw;
}

// Builds a packet into `packet` (MAX_PACKET_SIZE bytes) and returns its
// size; `count` data bytes (at most MAX_REPLY_LENGTH - 3) follow the header.
constexpr size_t BuildPacket(uint8_t source, uint8_t destination, uint8_t command,
                             const uint8_t* data, size_t count, uint8_t* packet) {
  if (data == nullptr) count = 0;
  if (count > MAX_REPLY_LENGTH - HEADER_LENGTH) count = MAX_REPLY_LENGTH - HEADER_LENGTH;
  packet[0] = PACKET_START;
  packet[LENGTH_OFFSET] = static_cast<uint8_t>(count + HEADER_LENGTH);
  packet[SOURCE_OFFSET] = source;
  packet[DESTINATION_OFFSET] = destination;
  packet[COMMAND_OFFSET] = command;
  for (size_t i = 0; i < count; ++i) packet[DATA_OFFSET + i] = data[i];
  const size_t size = DATA_OFFSET + count + 1;
  packet[size - 1] = Checksum(packet, size - 1);
  return size;
}

}  // namespace scopemount::auxbus
