// The motor-controller number form, from the protocol's own examples.
#include <gtest/gtest.h>

#include <string>

#include "protocols/motorcontroller/motor_controller_codec.h"

namespace scopemount::motorcontroller {
namespace {

TEST(MotorControllerCodec, NumbersTravelLowByteFirst) {
  const struct {
    int64_t value;
    const char* digits;
  } cases[] = {{0x123456, "563412"}, {0x800000, "000080"}, {3500, "AC0D00"},
               {0, "000000"},        {-1, "FFFFFF"},       {0x1ABCDEF0, "F0DEBC"}};
  for (const auto& c : cases) {
    uint8_t out[NUMBER_DIGITS];
    EncodeHex24(c.value, out);
    EXPECT_EQ(std::string(out, out + NUMBER_DIGITS), c.digits) << c.value;
  }
}

TEST(MotorControllerCodec, RepliesDecodeOneTwoOrThreeBytes) {
  const struct {
    const char* payload;
    bool decodes;
    uint32_t value;
  } cases[] = {
      {"12\r", true, 0x12},          {"3412\r", true, 0x1234},  {"563412\r", true, 0x123456},
      {"5634127\r", true, 0x123456}, {"0A\r", true, 0x0A},      {"0a\r", false, 0},
      {"5\r", false, 0},             {"\r", false, 0},          {"", false, 0},
      {"123\r", false, 0},           {"56341G\r", false, 0},    {"=1\r", false, 0},
  };
  for (const auto& c : cases) {
    uint32_t value = 0xDEAD;
    EXPECT_EQ(DecodeHex(reinterpret_cast<const uint8_t*>(c.payload), &value), c.decodes)
        << c.payload;
    if (c.decodes) {
      EXPECT_EQ(value, c.value) << c.payload;
    }
  }
}

TEST(MotorControllerCodec, CommandFrames) {
  uint8_t frame[COMMAND_BUFFER_SIZE];
  const uint8_t data[] = {'A', 'C', '0', 'D', '0', '0'};
  size_t n = BuildCommand(SET_BRAKE_STEPS, 1, data, sizeof data, frame);
  EXPECT_EQ(std::string(frame, frame + n), ":M2AC0D00\r");
  n = BuildCommand(READ_POSITION, 0, nullptr, 0, frame);
  EXPECT_EQ(std::string(frame, frame + n), ":j1\r");
}

}  // namespace
}  // namespace scopemount::motorcontroller
