#include "demo_controller.h"

#include <cmath>
#include <cstdio>
#include <sstream>

namespace scopemount::emulation {

namespace {

const std::string OK_REPLY = "OK\n";
const std::string ERROR_REPLY = "ERR\n";

}  // namespace

void DemoController::Receive(const uint8_t* bytes, size_t count, uint64_t nowMs,
                             ReplySink& sink) {
  for (size_t i = 0; i < count; ++i) {
    const char c = static_cast<char>(bytes[i]);
    if (c != '\n') {
      if (line_.size() < DEMO_MAX_LINE) {
        line_.push_back(c);
      } else {
        overlong_ = true;
      }
      continue;
    }
    const std::string reply = overlong_ ? ERROR_REPLY : Answer(line_, nowMs);
    sink.Reply(reinterpret_cast<const uint8_t*>(reply.data()), reply.size());
    line_.clear();
    overlong_ = false;
  }
}

std::string DemoController::Answer(const std::string& line, uint64_t nowMs) {
  std::istringstream fields(line);
  std::string verb;
  int axis = -1;
  if (!(fields >> verb >> axis) || axis < 0 || axis > 1) return ERROR_REPLY;
  AxisMotion& motion = axes_[axis];
  char text[48];
  if (verb == "POS") {
    std::snprintf(text, sizeof text, "%d %ld\n", axis, std::lround(motion.Position(nowMs)));
    return text;
  }
  if (verb == "STAT") {
    std::snprintf(text, sizeof text, "%d %u\n", axis, static_cast<unsigned>(motion.Status(nowMs)));
    return text;
  }
  if (verb == "STOP") {
    motion.Stop(nowMs);
    return OK_REPLY;
  }
  double value = 0.0;
  if (!(fields >> value) || !std::isfinite(value)) return ERROR_REPLY;
  if (verb == "RATE") {
    motion.Run(value, nowMs);
  } else if (verb == "GOTO") {
    motion.GoTo(value, nowMs);
  } else if (verb == "SET") {
    motion.SetPosition(value, nowMs);
  } else {
    return ERROR_REPLY;
  }
  return OK_REPLY;
}

}  // namespace scopemount::emulation
