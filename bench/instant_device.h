// A serial line held in memory whose far end answers at once: every write
// goes to Answer(), and what it queues with Reply() is there for the next
// read. Benchmarks and fuzz targets put a protocol layer on it without a
// pseudo-terminal or a clock. Counts the bytes that cross it both ways.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <initializer_list>
#include <memory>
#include <span>

#include "platform/serial_device.h"

namespace scopemount::testing {

struct LineCounts {
  uint64_t written = 0;  // host to device
  uint64_t read = 0;     // device to host
};

class InstantDevice : public platform::SerialDevice {
 public:
  // `counts` (may be null) outlives the device.
  explicit InstantDevice(LineCounts* counts = nullptr) : counts_(counts) {}

  bool SetBaudRate(uint32_t) override { return true; }
  bool WaitReadable(uint32_t) override { return !toHost_.empty(); }
  bool WaitWritable(uint32_t) override { return true; }
  long ReadAvailable(uint8_t* buffer, size_t size) override {
    size_t moved = 0;
    for (; moved < size && !toHost_.empty(); ++moved) {
      buffer[moved] = toHost_.front();
      toHost_.pop_front();
    }
    if (counts_ != nullptr) counts_->read += moved;
    return static_cast<long>(moved);
  }
  long WriteAvailable(const uint8_t* bytes, size_t count) override {
    if (counts_ != nullptr) counts_->written += count;
    if (count > 0) Answer(bytes, count);
    return static_cast<long>(count);
  }
  void Purge() override { toHost_.clear(); }
  void SetRts(bool) override {}
  bool IsCtsHigh() override { return false; }

 protected:
  // The far end's answer to the bytes the host just wrote.
  virtual void Answer(const uint8_t* bytes, size_t count) = 0;

  void Reply(const uint8_t* bytes, size_t count) { toHost_.insert(toHost_.end(), bytes, bytes + count); }
  void Reply(std::initializer_list<uint8_t> bytes) { toHost_.insert(toHost_.end(), bytes); }
  void Reply(std::span<const uint8_t> bytes) { Reply(bytes.data(), bytes.size()); }
  void Reply(const char* text) { Reply(reinterpret_cast<const uint8_t*>(text), std::strlen(text)); }

 private:
  LineCounts* counts_;
  std::deque<uint8_t> toHost_;
};

// Replies cut from a fuzzer's input: each a length byte and that many bytes.
struct ScriptedReplies {
  const uint8_t* data = nullptr;
  size_t left = 0;

  // The next reply (cut short where the input ends); empty once none is left.
  std::span<const uint8_t> Next() {
    if (left == 0) return {};
    size_t length = data[0];
    ++data;
    --left;
    if (length > left) length = left;
    const std::span<const uint8_t> reply(data, length);
    data += length;
    left -= length;
    return reply;
  }
};

// Opens a new `Device` (made from `arguments`) on every port.
template <typename Device, typename... Arguments>
class InstantDeviceFactory final : public platform::SerialDeviceFactory {
 public:
  explicit InstantDeviceFactory(Arguments... arguments) : make_([=] {
    return std::make_unique<Device>(arguments...);
  }) {}
  std::unique_ptr<platform::SerialDevice> Open(const char*) override { return make_(); }

 private:
  std::function<std::unique_ptr<Device>()> make_;
};

}  // namespace scopemount::testing
