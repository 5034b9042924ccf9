// A serial port with a simple reply reader (a fixed number of bytes) that
// records the order of its hooks, for exercising the port's own sequence.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "serial/serial_port.h"

namespace scopemount::testing {

// What the probe's reader returns when the reply was short, so tests can
// see Exchange pass the reader's own result on.
inline constexpr uint32_t PROBE_SHORT_REPLY = 9;

class ProbePort : public SerialPort {
 public:
  using SerialPort::CheckLine;
  using SerialPort::ClearRts;
  using SerialPort::IsCtsHigh;
  using SerialPort::Read;
  using SerialPort::ReleaseLine;
  using SerialPort::SetBaudRate;
  using SerialPort::SetRts;
  using SerialPort::TakeLine;

  // Sends `command` expecting `length` bytes back, into `into` or else into
  // `reply` (which one thread at a time may use).
  uint32_t Ask(const std::string& command, uint32_t length, uint8_t* into = nullptr) {
    replyLength = length;
    if (into == nullptr) {
      reply.fill(0);
      into = reply.data();
    }
    return Exchange(reinterpret_cast<const uint8_t*>(command.data()),
                    static_cast<uint32_t>(command.size()), into);
  }
  // The reply to `command`, as far as it came within the time-outs.
  std::string AskText(const std::string& command, uint32_t length) {
    Ask(command, length);
    return Reply(lastReadCount);
  }
  // The first `count` bytes of the last reply read into `reply`.
  std::string Reply(uint32_t count) const {
    return std::string(reinterpret_cast<const char*>(reply.data()), count);
  }

  std::array<uint8_t, 2048> reply{};
  // Bytes the next replies are expected to have.
  std::atomic<uint32_t> replyLength{0};
  std::atomic<uint32_t> lastReadCount{0};
  std::atomic<bool> refuseAfterSend{false};
  // Hook letters in call order: B(egin) S(end) A(fterSend) R(eceive) E(nd).
  std::string hooks;

 protected:
  uint32_t BeginExchange() override {
    hooks += 'B';
    return SerialPort::BeginExchange();
  }
  uint32_t Send(const uint8_t* bytes, uint32_t count) override {
    hooks += 'S';
    return SerialPort::Send(bytes, count);
  }
  uint32_t AfterSend() override {
    hooks += 'A';
    return refuseAfterSend ? 0 : 1;
  }
  uint32_t ReceiveReply(uint8_t* reply) override {
    hooks += 'R';
    lastReadCount = Read(reply, replyLength);
    return lastReadCount == replyLength ? EXCHANGE_OK : PROBE_SHORT_REPLY;
  }
  void EndExchange() override { hooks += 'E'; }
};

}  // namespace scopemount::testing
