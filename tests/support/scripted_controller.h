// A controller that answers from a script, for the wire tests. Each write of
// the host is one command; `name` says under which name its replies are
// scripted. A command takes the next of its replies, the last one
// repeating; `standard` answers commands with no script. An empty reply
// never comes.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "controller_model.h"
#include "support/emulated_port.h"
#include "support/fast_clock.h"

namespace scopemount::testing {

// A reply that never comes.
inline const std::string SILENCE;

class ScriptedController final : public emulation::ControllerModel {
 public:
  using Answer = std::function<std::string(const std::string& command)>;

  ScriptedController(Answer name, Answer standard)
      : name_(std::move(name)), standard_(std::move(standard)) {}

  void Script(const std::string& name, std::vector<std::string> replies) {
    std::lock_guard lock(mutex_);
    script_[name] = std::deque<std::string>(replies.begin(), replies.end());
  }

  void Receive(const uint8_t* bytes, size_t count, uint64_t, emulation::ReplySink& sink) override {
    const std::string reply = Next(std::string(bytes, bytes + count));
    sink.Reply(reinterpret_cast<const uint8_t*>(reply.data()), reply.size());
  }

 private:
  std::string Next(const std::string& command) {
    std::lock_guard lock(mutex_);
    auto found = script_.find(name_(command));
    if (found == script_.end() || found->second.empty()) return standard_(command);
    std::string reply = found->second.front();
    if (found->second.size() > 1) found->second.pop_front();
    return reply;
  }

  const Answer name_;
  const Answer standard_;
  std::mutex mutex_;
  std::map<std::string, std::deque<std::string>> script_;
};

// A scripted controller behind the library's serial port, on a clock
// `speed` times faster than the wall so that a reply that never comes costs
// little real time.
struct ScriptedLine {
  ScriptedLine(double speed, ScriptedController::Answer name, ScriptedController::Answer standard)
      : clock(speed),
        port(std::make_unique<ScriptedController>(std::move(name), std::move(standard))) {}

  ScriptedController& controller() { return static_cast<ScriptedController&>(port.model()); }
  // What the library wrote since the last call.
  std::string Written() {
    const std::vector<uint8_t> bytes = port.line().TakeHostBytes();
    return std::string(bytes.begin(), bytes.end());
  }

  ScopedFastClock clock;
  EmulatedPort port;
};

}  // namespace scopemount::testing
