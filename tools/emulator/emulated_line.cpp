#include "emulated_line.h"

#include <algorithm>

namespace scopemount::emulation {

namespace {
// The record of the host's bytes is for tests; a long-running served
// emulator keeps only the most recent ones.
constexpr size_t MAX_RECORDED_HOST_BYTES = 64 * 1024;
}  // namespace

// Turns the model's replies into arrivals on the line, faults applied.
// Runs with the line's mutex held.
class EmulatedLine::FaultySink final : public ReplySink {
 public:
  FaultySink(EmulatedLine& line, uint64_t nowMs) : line_(line), nowMs_(nowMs) {}

  void Reply(const uint8_t* bytes, size_t count) override {
    const LineFaults& faults = line_.faults_;
    ++line_.commandsSeen_;
    if (count == 0 || faults.silent || line_.commandsSeen_ > faults.stopAfterCommands) return;
    const uint64_t startMs = nowMs_ + faults.replyDelayMs;
    line_.Enqueue(faults.garbage.data(), faults.garbage.size(), startMs, faults.byteGapMs);
    line_.Enqueue(bytes, std::min(count, faults.truncateTo), startMs, faults.byteGapMs);
  }

 private:
  EmulatedLine& line_;
  const uint64_t nowMs_;
};

EmulatedLine::EmulatedLine(ControllerModel& model, const EmulatorClock& clock)
    : model_(model), clock_(clock) {}

void EmulatedLine::SetFaults(const LineFaults& faults) {
  std::lock_guard lock(mutex_);
  faults_ = faults;
}

void EmulatedLine::SetWiring(const LineWiring& wiring) {
  std::lock_guard lock(mutex_);
  wiring_ = wiring;
}

// Bytes never overtake each other: each arrives no earlier than the one
// before it, and `gapMs` after it when the reply is paced.
void EmulatedLine::Enqueue(const uint8_t* bytes, size_t count, uint64_t startMs, uint32_t gapMs) {
  for (size_t i = 0; i < count; ++i) {
    uint64_t atMs = startMs;
    if (!incoming_.empty()) {
      const uint64_t previous = incoming_.back().atMs;
      atMs = std::max(atMs, i == 0 ? previous : previous + gapMs);
    }
    incoming_.push_back({atMs, bytes[i]});
  }
}

void EmulatedLine::HostWrite(const uint8_t* bytes, size_t count) {
  if (bytes == nullptr || count == 0) return;
  std::lock_guard lock(mutex_);
  const uint64_t nowMs = clock_.NowMs();
  hostBytes_.insert(hostBytes_.end(), bytes, bytes + count);
  if (hostBytes_.size() > MAX_RECORDED_HOST_BYTES) {
    hostBytes_.erase(hostBytes_.begin(),
                     hostBytes_.end() - static_cast<std::ptrdiff_t>(MAX_RECORDED_HOST_BYTES));
  }
  if (wiring_.echo) Enqueue(bytes, count, nowMs, 0);
  FaultySink sink(*this, nowMs);
  model_.Receive(bytes, count, nowMs, sink);
}

size_t EmulatedLine::HostRead(uint8_t* buffer, size_t size) {
  std::lock_guard lock(mutex_);
  const uint64_t nowMs = clock_.NowMs();
  size_t moved = 0;
  while (moved < size && !incoming_.empty() && incoming_.front().atMs <= nowMs) {
    buffer[moved++] = incoming_.front().byte;
    incoming_.pop_front();
  }
  return moved;
}

void EmulatedLine::HostPurge() {
  std::lock_guard lock(mutex_);
  const uint64_t nowMs = clock_.NowMs();
  while (!incoming_.empty() && incoming_.front().atMs <= nowMs) incoming_.pop_front();
}

void EmulatedLine::SetHostRts(bool high) {
  std::lock_guard lock(mutex_);
  hostRts_ = high;
}

bool EmulatedLine::IsHostRtsHigh() const {
  std::lock_guard lock(mutex_);
  return hostRts_;
}

bool EmulatedLine::IsHostCtsHigh() const {
  std::lock_guard lock(mutex_);
  return wiring_.ctsHeldHigh || (wiring_.rtsLoopsToCts && hostRts_);
}

uint64_t EmulatedLine::NextArrivalMs() const {
  std::lock_guard lock(mutex_);
  return incoming_.empty() ? NO_ARRIVAL : incoming_.front().atMs;
}

std::vector<uint8_t> EmulatedLine::TakeHostBytes() {
  std::lock_guard lock(mutex_);
  std::vector<uint8_t> taken;
  taken.swap(hostBytes_);
  return taken;
}

size_t EmulatedLine::CommandsSeen() const {
  std::lock_guard lock(mutex_);
  return commandsSeen_;
}

}  // namespace scopemount::emulation
