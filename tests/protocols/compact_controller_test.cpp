// The emulated compact board on its own: replies, motion at run rates and
// GOTO speed on the bench's clock, both gearings, commands in pieces (its
// name on the bench is the emulate command's test).
#include <gtest/gtest.h>

#include <vector>

#include "compact_controller.h"

namespace scopemount::testing {
namespace {

using Bytes = std::vector<uint8_t>;
using emulation::CompactController;

class Capture final : public emulation::ReplySink {
 public:
  void Reply(const uint8_t* bytes, size_t count) override {
    replies.emplace_back(bytes, bytes + count);
  }
  std::vector<Bytes> replies;
};

// Sends `command` at `nowMs` and returns the board's replies to it.
std::vector<Bytes> Send(CompactController& board, const Bytes& command, uint64_t nowMs) {
  Capture sink;
  board.Receive(command.data(), command.size(), nowMs, sink);
  return sink.replies;
}

TEST(CompactController, RepliesAndMotionFollowTheCommands) {
  CompactController board;
  struct Step {
    const char* what;
    uint64_t atMs;
    Bytes command;
    std::vector<Bytes> replies;
  };
  const Step steps[] = {
      {"position at start", 0, {1}, {{0, 0, 0}}},
      {"no GOTO ran", 0, {13}, {{0xFF}}},
      // 100.0 counts/s positive on axis 0.
      {"run positive", 0, {6, 0, 0x03, 0xE8}, {{}}},
      {"ran for 2 s", 2000, {1}, {{0, 0, 200}}},
      {"run negative", 2000, {7, 0, 0x03, 0xE8}, {{}}},
      {"back through zero wraps", 5000, {1}, {{0x0B, 0x15, 0xBB}}},
      {"zero rate stands", 5000, {7, 0, 0, 0}, {{}}},
      {"still", 9000, {1}, {{0x0B, 0x15, 0xBB}}},
      // 8 degrees a second of 726559 counts: 16145.76 counts/s.
      {"GOTO altitude", 10000, {22, 0, 0x3F, 0x11}, {{}}},
      {"altitude half way", 10500, {21}, {{0, 0x1F, 0x88}}},
      {"axis 0 status is not axis 1's", 10500, {13}, {{0xFF}}},
      {"altitude arrived", 12000, {21}, {{0, 0x3F, 0x11}}},
      {"GOTO azimuth the short way", 12000, {2, 0, 0, 100}, {{}}},
      {"azimuth GOTO runs", 12001, {13}, {{0x00}}},
      {"azimuth GOTO stopped", 12001, {5}, {{}}},
      {"ended", 12002, {13}, {{0xFF}}},
      {"load altitude", 13000, {24, 0x01, 0x02, 0x03}, {{}}},
      {"altitude loaded", 13000, {21}, {{0x01, 0x02, 0x03}}},
      {"start-up settings take no reply", 13000, {10, 0, 0, 0, 30, 0, 0, 0, 14, 0, 0x0F, 0xC4},
       {{}, {}, {}}},
      {"noise is dropped", 13000, {0, 99, 255, 21}, {{0x01, 0x02, 0x03}}},
      // The large gearing (1059334), told in pieces: its GOTO speed is
      // 23539.6 counts/s, so 23539 counts take a second.
      {"half a command waits", 14000, {12, 0x10}, {}},
      {"the rest completes it", 14000, {0x2A, 0x06}, {{}}},
      {"GOTO at the new speed", 14000, {22, 0x01, 0x5D, 0xF6}, {{}}},
      {"arrived a second later", 15000, {21}, {{0x01, 0x5D, 0xF6}}},
  };
  for (const Step& step : steps) {
    EXPECT_EQ(Send(board, step.command, step.atMs), step.replies) << step.what;
  }
}

}  // namespace
}  // namespace scopemount::testing
