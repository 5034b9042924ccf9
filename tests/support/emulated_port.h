// An emulated controller behind the library's real serial port code, in
// process: while an EmulatedPort lives, every serial port the library opens
// (whatever its path) is a device on this bench's line, on the library's
// active clock. The bench itself lives as long as the last device opened on
// it, so a worker that outlasts its test still talks to a live controller.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "controller_model.h"
#include "emulated_line.h"
#include "platform/serial_device.h"

namespace scopemount::testing {

// The library's active clock (a fast test clock, when one is in use), as
// the bench's clock.
class LibraryClock final : public emulation::EmulatorClock {
 public:
  uint64_t NowMs() const override;
  std::chrono::steady_clock::time_point RealInstantOf(uint64_t ms) const override;
};

class EmulatedPort final : public platform::SerialDeviceFactory {
 public:
  explicit EmulatedPort(std::unique_ptr<emulation::ControllerModel> model);
  ~EmulatedPort() override;
  EmulatedPort(const EmulatedPort&) = delete;
  EmulatedPort& operator=(const EmulatedPort&) = delete;

  std::unique_ptr<platform::SerialDevice> Open(const char* path) override;

  // The controller, its line and what the opened devices have been told,
  // shared with every device opened on this port.
  struct Bench {
    explicit Bench(std::unique_ptr<emulation::ControllerModel> controller)
        : model(std::move(controller)), line(*model, clock) {}
    LibraryClock clock;
    std::unique_ptr<emulation::ControllerModel> model;
    emulation::EmulatedLine line;
    std::atomic<int> opens{0};
    std::atomic<uint32_t> baudRate{0};
    std::atomic<int> purges{0};
    std::atomic<bool> stallWrites{false};
  };

  emulation::EmulatedLine& line() { return bench_->line; }
  emulation::ControllerModel& model() { return *bench_->model; }

  std::string LastOpenedPath() const;

 private:
  std::shared_ptr<Bench> bench_;
  mutable std::mutex pathMutex_;
  std::string lastOpenedPath_;

 public:
  // What the opened devices have been told.
  std::atomic<int>& opens = bench_->opens;
  std::atomic<uint32_t>& baudRate = bench_->baudRate;
  std::atomic<int>& purges = bench_->purges;
  // A device fault: written bytes never leave.
  std::atomic<bool>& stallWrites = bench_->stallWrites;
};

}  // namespace scopemount::testing
