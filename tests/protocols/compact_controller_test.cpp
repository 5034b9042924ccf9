// The emulated compact board on its own, for what the sessions cannot see:
// replies to start-up settings and noise, commands in pieces, and a GOTO
// that takes the short way across zero (the long one also arrives).
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

TEST(CompactController, RepliesFramingAndTheShortWayRound) {
  CompactController board;
  struct Step {
    const char* what;
    uint64_t atMs;
    Bytes command;
    std::vector<Bytes> replies;
  };
  const Step steps[] = {
      {"start-up settings take no reply", 0, {10, 0, 0, 0, 30, 0, 0, 0, 14, 0, 0x0F, 0xC4},
       {{}, {}, {}}},
      {"noise is dropped", 0, {0, 99, 255, 1}, {{0, 0, 0}}},
      // 100 counts below zero of 726559: the short way is 100 counts back.
      {"GOTO azimuth across zero", 0, {2, 0x0B, 0x15, 0xBB}, {{}}},
      {"arrived the short way", 1000, {1}, {{0x0B, 0x15, 0xBB}}},
      {"GOTO ended", 1000, {13}, {{0xFF}}},
      {"half a command waits", 1000, {24, 0x01}, {}},
      {"the rest completes it", 1000, {0x02, 0x03}, {{}}},
      {"altitude loaded", 1000, {21}, {{0x01, 0x02, 0x03}}},
  };
  for (const Step& step : steps) {
    EXPECT_EQ(Send(board, step.command, step.atMs), step.replies) << step.what;
  }
}

}  // namespace
}  // namespace scopemount::testing
