// The telescope protocol planetarium programs speak over TCP: every byte
// layout of its messages is here. A message starts with LENGTH (2 bytes,
// the whole message, these 2 included) and TYPE (2 bytes); integers are
// little-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace scopemount::cli::planetarium {

inline constexpr uint16_t DEFAULT_PORT = 10001;
inline constexpr size_t HEADER_SIZE = 4;  // LENGTH, TYPE

// Client to server: TIME (8, signed µs since 1970 UTC), RA (4), DEC (4).
inline constexpr uint16_t GOTO_TYPE = 0;
inline constexpr size_t GOTO_SIZE = 20;
// Server to client: TIME (8), RA (4), DEC (4), STATUS (4, signed, 0 = OK).
inline constexpr uint16_t CURRENT_POSITION_TYPE = 0;
inline constexpr size_t CURRENT_POSITION_SIZE = 24;
inline constexpr int32_t STATUS_OK = 0;

struct Goto {
  int64_t timeMicroseconds = 0;
  uint32_t rightAscension = 0;  // 0x100000000 is 24 h
  int32_t declination = 0;      // 0x40000000 is +90 degrees
};

struct CurrentPosition {
  int64_t timeMicroseconds = 0;
  uint32_t rightAscension = 0;
  int32_t declination = 0;
  int32_t status = STATUS_OK;
};

// Angles in the protocol's units and back. Right ascension is reduced into
// one turn; declination is clamped to the poles.
uint32_t RightAscensionUnits(double radians);
int32_t DeclinationUnits(double radians);
double RightAscensionRadians(uint32_t units);
double DeclinationRadians(int32_t units);

std::array<uint8_t, CURRENT_POSITION_SIZE> Encode(const CurrentPosition& message);
std::array<uint8_t, GOTO_SIZE> Encode(const Goto& message);
// Reads a CurrentPosition from exactly CURRENT_POSITION_SIZE bytes (length
// and type not checked).
CurrentPosition DecodeCurrentPosition(std::span<const uint8_t, CURRENT_POSITION_SIZE> bytes);

// Cuts a client's byte stream into messages, whatever the reads: a message
// split over many reads, or many messages in one. Unknown types and Gotos
// of any other length are skipped by their LENGTH without being stored, so
// a reader holds at most one Goto whatever a client sends.
class MessageReader {
 public:
  // Feeds the next bytes; calls `onGoto` for each complete Goto. False once
  // the stream cannot be cut any more (a LENGTH shorter than the header):
  // nothing after that is read.
  bool Feed(std::span<const uint8_t> bytes, const std::function<void(const Goto&)>& onGoto);
  // True between the first and last byte of a message.
  bool midMessage() const { return have_ != 0 || skipRemaining_ != 0; }
  size_t skippedMessages() const { return skipped_; }

 private:
  std::array<uint8_t, GOTO_SIZE> message_{};
  size_t have_ = 0;           // bytes of message_ filled
  size_t skipRemaining_ = 0;  // bytes left of a message being skipped
  size_t skipped_ = 0;
  bool broken_ = false;
};

}  // namespace scopemount::cli::planetarium
