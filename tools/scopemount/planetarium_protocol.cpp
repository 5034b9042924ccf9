#include "planetarium_protocol.h"

#include <algorithm>
#include <cmath>

namespace scopemount::cli::planetarium {

namespace {

constexpr double TWO_PI = 6.283185307179586;
constexpr double HALF_PI = 1.5707963267948966;
constexpr double RA_UNITS_PER_TURN = 4294967296.0;  // 2^32
constexpr double DEC_UNITS_PER_QUARTER = 1073741824.0;  // 2^30

// Offsets within a message.
constexpr size_t LENGTH_AT = 0;
constexpr size_t TYPE_AT = 2;
constexpr size_t TIME_AT = 4;
constexpr size_t RA_AT = 12;
constexpr size_t DEC_AT = 16;
constexpr size_t STATUS_AT = 20;

template <typename T>
void Put(uint8_t* at, T value) {
  auto bits = static_cast<std::make_unsigned_t<T>>(value);
  for (size_t i = 0; i < sizeof(T); ++i) at[i] = static_cast<uint8_t>(bits >> (8 * i));
}

template <typename T>
T Get(const uint8_t* at) {
  using Unsigned = std::make_unsigned_t<T>;
  Unsigned bits = 0;
  for (size_t i = 0; i < sizeof(T); ++i) {
    bits |= static_cast<Unsigned>(static_cast<Unsigned>(at[i]) << (8 * i));
  }
  return static_cast<T>(bits);
}

template <size_t N>
void PutHeader(std::array<uint8_t, N>& bytes, uint16_t type) {
  Put<uint16_t>(&bytes[LENGTH_AT], static_cast<uint16_t>(N));
  Put<uint16_t>(&bytes[TYPE_AT], type);
}

}  // namespace

uint32_t RightAscensionUnits(double radians) {
  if (!std::isfinite(radians)) return 0;
  double turns = std::fmod(radians / TWO_PI, 1.0);
  if (turns < 0.0) turns += 1.0;
  // Rounding may reach a whole turn: that is 0 again.
  return static_cast<uint32_t>(static_cast<uint64_t>(std::llround(turns * RA_UNITS_PER_TURN)));
}

int32_t DeclinationUnits(double radians) {
  if (!std::isfinite(radians)) return 0;
  const double clamped = std::clamp(radians, -HALF_PI, HALF_PI);
  return static_cast<int32_t>(std::llround(clamped / HALF_PI * DEC_UNITS_PER_QUARTER));
}

double RightAscensionRadians(uint32_t units) { return units / RA_UNITS_PER_TURN * TWO_PI; }

double DeclinationRadians(int32_t units) { return units / DEC_UNITS_PER_QUARTER * HALF_PI; }

std::array<uint8_t, CURRENT_POSITION_SIZE> Encode(const CurrentPosition& message) {
  std::array<uint8_t, CURRENT_POSITION_SIZE> bytes{};
  PutHeader(bytes, CURRENT_POSITION_TYPE);
  Put<int64_t>(&bytes[TIME_AT], message.timeMicroseconds);
  Put<uint32_t>(&bytes[RA_AT], message.rightAscension);
  Put<int32_t>(&bytes[DEC_AT], message.declination);
  Put<int32_t>(&bytes[STATUS_AT], message.status);
  return bytes;
}

std::array<uint8_t, GOTO_SIZE> Encode(const Goto& message) {
  std::array<uint8_t, GOTO_SIZE> bytes{};
  PutHeader(bytes, GOTO_TYPE);
  Put<int64_t>(&bytes[TIME_AT], message.timeMicroseconds);
  Put<uint32_t>(&bytes[RA_AT], message.rightAscension);
  Put<int32_t>(&bytes[DEC_AT], message.declination);
  return bytes;
}

CurrentPosition DecodeCurrentPosition(std::span<const uint8_t, CURRENT_POSITION_SIZE> bytes) {
  CurrentPosition message;
  message.timeMicroseconds = Get<int64_t>(&bytes[TIME_AT]);
  message.rightAscension = Get<uint32_t>(&bytes[RA_AT]);
  message.declination = Get<int32_t>(&bytes[DEC_AT]);
  message.status = Get<int32_t>(&bytes[STATUS_AT]);
  return message;
}

bool MessageReader::Feed(std::span<const uint8_t> bytes,
                         const std::function<void(const Goto&)>& onGoto) {
  while (!broken_ && !bytes.empty()) {
    if (skipRemaining_ > 0) {
      const size_t n = std::min(skipRemaining_, bytes.size());
      skipRemaining_ -= n;
      bytes = bytes.subspan(n);
      continue;
    }
    // The header first, then (for a Goto) the rest of the message.
    const size_t wanted = have_ < HEADER_SIZE ? HEADER_SIZE : GOTO_SIZE;
    const size_t n = std::min(wanted - have_, bytes.size());
    std::copy_n(bytes.begin(), n, message_.begin() + static_cast<std::ptrdiff_t>(have_));
    have_ += n;
    bytes = bytes.subspan(n);
    if (have_ < wanted) break;
    if (wanted == HEADER_SIZE) {
      const size_t length = Get<uint16_t>(&message_[LENGTH_AT]);
      const uint16_t type = Get<uint16_t>(&message_[TYPE_AT]);
      if (length < HEADER_SIZE) {
        broken_ = true;
        break;
      }
      if (type != GOTO_TYPE || length != GOTO_SIZE) {
        skipRemaining_ = length - HEADER_SIZE;
        have_ = 0;
        ++skipped_;
      }
      continue;
    }
    have_ = 0;
    Goto message;
    message.timeMicroseconds = Get<int64_t>(&message_[TIME_AT]);
    message.rightAscension = Get<uint32_t>(&message_[RA_AT]);
    message.declination = Get<int32_t>(&message_[DEC_AT]);
    onGoto(message);
  }
  return !broken_;
}

}  // namespace scopemount::cli::planetarium
