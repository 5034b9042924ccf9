#include "emulated_port.h"

#include <algorithm>
#include <thread>

#include "platform/clock.h"

namespace scopemount::testing {

uint64_t LibraryClock::NowMs() const { return platform::ActiveClock().NowMs(); }

std::chrono::steady_clock::time_point LibraryClock::RealInstantOf(uint64_t ms) const {
  const platform::Clock& clock = platform::ActiveClock();
  const uint64_t now = clock.NowMs();
  const uint64_t ahead = ms > now ? std::min<uint64_t>(ms - now, platform::WAIT_FOREVER - 1) : 0;
  return clock.RealDeadlineAfter(static_cast<uint32_t>(ahead));
}

class EmulatedDevice final : public platform::SerialDevice {
 public:
  explicit EmulatedDevice(std::shared_ptr<EmulatedPort::Bench> bench)
      : bench_(std::move(bench)), port_(*bench_), line_(bench_->line) {}

  bool SetBaudRate(uint32_t baud) override {
    port_.baudRate = baud;
    return true;
  }

  // Sleeps until the next reply byte is due, at most `ms`.
  bool WaitReadable(uint32_t ms) override {
    const auto deadline = platform::ActiveClock().RealDeadlineAfter(ms);
    const uint64_t next = line_.NextArrivalMs();
    if (next != emulation::NO_ARRIVAL && next <= port_.clock.NowMs()) return true;
    const auto due = next == emulation::NO_ARRIVAL ? deadline
                                                   : std::min(deadline, port_.clock.RealInstantOf(next));
    std::this_thread::sleep_until(due);
    return line_.NextArrivalMs() <= port_.clock.NowMs();
  }

  bool WaitWritable(uint32_t ms) override {
    if (!port_.stallWrites) return true;
    std::this_thread::sleep_until(platform::ActiveClock().RealDeadlineAfter(ms));
    return false;
  }

  long ReadAvailable(uint8_t* buffer, size_t size) override {
    return static_cast<long>(line_.HostRead(buffer, size));
  }

  long WriteAvailable(const uint8_t* bytes, size_t count) override {
    if (port_.stallWrites) return 0;
    line_.HostWrite(bytes, count);
    return static_cast<long>(count);
  }

  void Purge() override {
    ++port_.purges;
    line_.HostPurge();
  }

  void SetRts(bool high) override { line_.SetHostRts(high); }
  bool IsCtsHigh() override { return line_.IsHostCtsHigh(); }

 private:
  const std::shared_ptr<EmulatedPort::Bench> bench_;
  EmulatedPort::Bench& port_;
  emulation::EmulatedLine& line_;
};

EmulatedPort::EmulatedPort(std::unique_ptr<emulation::ControllerModel> model)
    : bench_(std::make_shared<Bench>(std::move(model))) {
  platform::UseSerialDeviceFactory(this);
}

EmulatedPort::~EmulatedPort() { platform::UseSerialDeviceFactory(nullptr); }

std::unique_ptr<platform::SerialDevice> EmulatedPort::Open(const char* path) {
  {
    std::lock_guard lock(pathMutex_);
    lastOpenedPath_ = path;
  }
  ++opens;
  // A freshly opened line: default rate, RTS low.
  baudRate = platform::DEFAULT_BAUD_RATE;
  bench_->line.SetHostRts(false);
  return std::make_unique<EmulatedDevice>(bench_);
}

std::string EmulatedPort::LastOpenedPath() const {
  std::lock_guard lock(pathMutex_);
  return lastOpenedPath_;
}

}  // namespace scopemount::testing
