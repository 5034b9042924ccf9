#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "planetarium_protocol.h"

namespace {

namespace pp = scopemount::cli::planetarium;
using Bytes = std::vector<uint8_t>;
constexpr double PI = 3.141592653589793;

Bytes GotoUnits(uint32_t rightAscension, int32_t declination, int64_t time) {
  const auto bytes = pp::Encode(pp::Goto{time, rightAscension, declination});
  return Bytes(bytes.begin(), bytes.end());
}

// Any header, then `bodySize` filler bytes.
Bytes Message(uint16_t length, uint16_t type, size_t bodySize) {
  Bytes bytes = {static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8),
                 static_cast<uint8_t>(type), static_cast<uint8_t>(type >> 8)};
  bytes.resize(4 + bodySize, 0xA5);
  return bytes;
}

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

template <typename Container>
std::string Hex(const Container& bytes) {
  std::string text;
  char two[3];
  for (uint8_t b : bytes) {
    std::snprintf(two, sizeof two, "%02x", b);
    text += two;
  }
  return text;
}

TEST(PlanetariumProtocol, MessagesOnTheWire) {
  EXPECT_EQ(Hex(pp::Encode(pp::CurrentPosition{0x0102030405060708, 0x80000000u, -0x40000000, 0})),
            "18000000" "0807060504030201" "00000080" "000000c0" "00000000");
  EXPECT_EQ(Hex(pp::Encode(pp::CurrentPosition{-1, 1, 0x40000000, -2})),
            "18000000" "ffffffffffffffff" "01000000" "00000040" "feffffff");
  EXPECT_EQ(Hex(pp::Encode(pp::Goto{1, 0xFFFFFFFFu, -1})),
            "14000000" "0100000000000000" "ffffffff" "ffffffff");
  const auto bytes = pp::Encode(pp::CurrentPosition{-5, 123456789u, -987654321, 3});
  const pp::CurrentPosition back = pp::DecodeCurrentPosition(bytes);
  EXPECT_EQ(back.timeMicroseconds, -5);
  EXPECT_EQ(back.rightAscension, 123456789u);
  EXPECT_EQ(back.declination, -987654321);
  EXPECT_EQ(back.status, 3);
}

TEST(PlanetariumProtocol, AnglesInTheProtocolsUnits) {
  struct {
    double radians;
    uint32_t units;
  } const rightAscensions[] = {
      {0.0, 0u},          {PI, 0x80000000u},       {PI / 2, 0x40000000u},
      {-PI / 2, 0xC0000000u}, {5 * PI, 0x80000000u}, {2 * PI - 1e-12, 0u},  // rounds to a turn
      {NAN, 0u},          {INFINITY, 0u},
  };
  for (const auto& c : rightAscensions) {
    EXPECT_EQ(pp::RightAscensionUnits(c.radians), c.units) << c.radians;
  }
  struct {
    double radians;
    int32_t units;
  } const declinations[] = {
      {0.0, 0}, {PI / 2, 0x40000000}, {-PI / 2, -0x40000000}, {PI / 4, 0x20000000},
      {2.0, 0x40000000}, {-7.0, -0x40000000}, {NAN, 0},
  };
  for (const auto& c : declinations) {
    EXPECT_EQ(pp::DeclinationUnits(c.radians), c.units) << c.radians;
  }
  // Back and forth within the units' resolution (a few milliarcseconds).
  for (double ra : {0.1, 1.0, 3.0, 6.2}) {
    EXPECT_NEAR(pp::RightAscensionRadians(pp::RightAscensionUnits(ra)), ra, 2e-9);
  }
  for (double dec : {-1.5, -0.3, 0.7, 1.57}) {
    EXPECT_NEAR(pp::DeclinationRadians(pp::DeclinationUnits(dec)), dec, 2e-9);
  }
}

// Feeds `stream` in pieces of `piece` bytes; the right ascensions of the
// Gotos read, and whether the stream stayed cut into messages.
std::pair<std::vector<uint32_t>, bool> Read(const Bytes& stream, size_t piece) {
  pp::MessageReader reader;
  std::vector<uint32_t> gotos;
  bool framed = true;
  for (size_t at = 0; at < stream.size() && framed; at += piece) {
    const size_t n = std::min(piece, stream.size() - at);
    framed = reader.Feed(std::span<const uint8_t>(stream.data() + at, n), [&](const pp::Goto& m) {
      EXPECT_EQ(m.timeMicroseconds, 42);
      EXPECT_EQ(m.declination, -7);
      gotos.push_back(m.rightAscension);
    });
  }
  EXPECT_FALSE(framed && reader.midMessage()) << "every stream here ends on a message";
  return {gotos, framed};
}

TEST(PlanetariumProtocol, ReaderCutsAnyStreamIntoMessages) {
  const Bytes a = GotoUnits(1, -7, 42), b = GotoUnits(2, -7, 42);
  struct {
    const char* what;
    Bytes stream;
    std::vector<uint32_t> gotos;
    bool framed;
  } const cases[] = {
      {"two Gotos", Join({a, b}), {1, 2}, true},
      {"unknown type between", Join({a, Message(9, 3, 5), b}), {1, 2}, true},
      {"a type-0 message of 24 bytes is no Goto", Join({Message(24, 0, 20), b}), {2}, true},
      {"under-long Goto", Join({Message(8, 0, 4), a}), {1}, true},
      {"header-only message", Join({Message(4, 0, 0), a}), {1}, true},
      {"the longest message", Join({Message(65535, 9, 65531), a}), {1}, true},
      {"LENGTH below the header stops reading", Join({a, Message(3, 0, 0), b}), {1}, false},
      {"LENGTH zero", Join({Message(0, 0, 0), a}), {}, false},
  };
  for (const auto& c : cases) {
    for (size_t piece : {size_t{1}, size_t{3}, size_t{7}, size_t{20}, size_t{100000}}) {
      const auto [gotos, framed] = Read(c.stream, piece);
      EXPECT_EQ(gotos, c.gotos) << c.what << ", pieces of " << piece;
      EXPECT_EQ(framed, c.framed) << c.what << ", pieces of " << piece;
    }
  }
}

}  // namespace
