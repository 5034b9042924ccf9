// An emulated controller behind the library's real serial port code, in
// process: while an EmulatedPort lives, every serial port the library opens
// (whatever its path) is a device on this bench's line, on the library's
// active clock.
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

  emulation::EmulatedLine& line() { return line_; }
  emulation::ControllerModel& model() { return *model_; }

  // What the opened devices have been told.
  std::string LastOpenedPath() const;
  std::atomic<int> opens{0};
  std::atomic<uint32_t> baudRate{0};
  std::atomic<int> purges{0};
  // Device faults: the path cannot be opened; written bytes never leave.
  std::atomic<bool> refuseOpen{false};
  std::atomic<bool> stallWrites{false};

 private:
  friend class EmulatedDevice;
  LibraryClock clock_;
  std::unique_ptr<emulation::ControllerModel> model_;
  emulation::EmulatedLine line_;
  mutable std::mutex pathMutex_;
  std::string lastOpenedPath_;
};

}  // namespace scopemount::testing
