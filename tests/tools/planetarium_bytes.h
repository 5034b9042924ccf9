// Planetarium messages as a test client writes them, right or wrong.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "planetarium_protocol.h"

namespace scopemount::testing {

using Bytes = std::vector<uint8_t>;

inline Bytes GotoUnits(uint32_t rightAscension, int32_t declination, int64_t time = 0) {
  namespace pp = cli::planetarium;
  const auto bytes = pp::Encode(pp::Goto{time, rightAscension, declination});
  return Bytes(bytes.begin(), bytes.end());
}

// Any header, then `bodySize` filler bytes.
inline Bytes Message(uint16_t length, uint16_t type, size_t bodySize) {
  Bytes bytes = {static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8),
                 static_cast<uint8_t>(type), static_cast<uint8_t>(type >> 8)};
  bytes.resize(4 + bodySize, 0xA5);
  return bytes;
}

inline Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

}  // namespace scopemount::testing
