#include "serial/serial_port.h"

#include <algorithm>

#include "platform/clock.h"
#include "platform/port_names.h"
#include "serial/port_selection.h"

namespace scopemount {

namespace {

// The handshake probe: how often CTS is read while it is still high from
// someone else, and how long to wait between readings.
constexpr int CHECK_LINE_TRIES = 40;
constexpr uint32_t CHECK_LINE_PAUSE_MS = 10;

uint64_t ReadDeadline(uint64_t start, uint32_t count) {
  return start + READ_TOTAL_CONSTANT_MS + uint64_t{READ_TOTAL_PER_BYTE_MS} * count;
}

uint64_t WriteDeadline(uint64_t start, uint32_t count) {
  return start + WRITE_TOTAL_CONSTANT_MS + uint64_t{WRITE_TOTAL_PER_BYTE_MS} * count;
}

uint32_t WaitBetween(uint64_t now, uint64_t deadline) {
  return static_cast<uint32_t>(std::min<uint64_t>(deadline - now, platform::WAIT_FOREVER - 1));
}

}  // namespace

SerialPort::SerialPort() {
  char path[platform::MAX_PORT_PATH + 1];
  if (platform::PortDevicePath(PortNumber(), path, sizeof path)) {
    device_ = platform::OpenSerialDevice(path);
  }
}

SerialPort::~SerialPort() = default;

uint32_t SerialPort::Exchange(const uint8_t* command, uint32_t count, uint8_t* reply) {
  if (exchangeEvent_.Wait(EXCHANGE_WAIT_MS) != platform::WaitResult::Signalled) {
    return EXCHANGE_LINE_BUSY;
  }
  BeginExchange();
  Purge();
  uint32_t result = Send(command, count);
  if (result == EXCHANGE_OK) {
    result = AfterSend() != 0 ? ReceiveReply(reply) : EXCHANGE_NOT_SENT;
  }
  EndExchange();
  exchangeEvent_.Set();
  return result;
}

uint32_t SerialPort::BeginExchange() { return 1; }

uint32_t SerialPort::Send(const uint8_t* bytes, uint32_t count) {
  lastSendLength = count;
  return Write(bytes, count) ? EXCHANGE_OK : EXCHANGE_NOT_SENT;
}

uint32_t SerialPort::AfterSend() { return 1; }

void SerialPort::EndExchange() {}

uint32_t SerialPort::CheckLine() {
  // Wait for someone else's CTS to drop before probing with ours.
  for (int tries = CHECK_LINE_TRIES; IsCtsHigh(); --tries) {
    if (tries == 0) return 0;
    platform::Sleep(CHECK_LINE_PAUSE_MS);
  }
  SetRts();
  const uint32_t loopsBack = IsCtsHigh() ? 1 : 0;
  ClearRts();
  return loopsBack;
}

// The one place where the read time-outs are applied. Before the first byte
// only the total bound runs; after each byte the next must follow within
// READ_INTERVAL_MS. Interrupted waits and short reads just go round again.
uint32_t SerialPort::Read(uint8_t* buffer, uint32_t count) {
  if (device_ == nullptr || buffer == nullptr) return 0;
  const platform::Clock& clock = platform::ActiveClock();
  const uint64_t totalDeadline = ReadDeadline(clock.NowMs(), count);
  uint64_t deadline = totalDeadline;
  uint32_t received = 0;
  while (received < count) {
    const uint64_t now = clock.NowMs();
    if (now >= deadline) break;
    if (!device_->WaitReadable(WaitBetween(now, deadline))) continue;
    const long moved = device_->ReadAvailable(buffer + received, count - received);
    if (moved == platform::SERIAL_IO_FAILED) break;
    if (moved > 0) {
      received += static_cast<uint32_t>(moved);
      deadline = std::min(totalDeadline, clock.NowMs() + READ_INTERVAL_MS);
    }
  }
  return received;
}

// The write time-out, likewise in one place: the whole command must be
// handed to the device within its bound.
bool SerialPort::Write(const uint8_t* bytes, uint32_t count) {
  if (device_ == nullptr || (bytes == nullptr && count != 0)) return false;
  const platform::Clock& clock = platform::ActiveClock();
  const uint64_t deadline = WriteDeadline(clock.NowMs(), count);
  uint32_t written = 0;
  while (written < count) {
    const long moved = device_->WriteAvailable(bytes + written, count - written);
    if (moved == platform::SERIAL_IO_FAILED) return false;
    written += static_cast<uint32_t>(moved);
    if (written == count) break;
    const uint64_t now = clock.NowMs();
    if (now >= deadline) return false;
    device_->WaitWritable(WaitBetween(now, deadline));
  }
  return true;
}

void SerialPort::Purge() {
  if (device_ != nullptr) device_->Purge();
}

void SerialPort::SetRts() {
  if (device_ != nullptr) device_->SetRts(true);
}

void SerialPort::ClearRts() {
  if (device_ != nullptr) device_->SetRts(false);
}

bool SerialPort::IsCtsHigh() { return device_ != nullptr && device_->IsCtsHigh(); }

bool SerialPort::SetBaudRate(uint32_t baud) {
  return device_ != nullptr && device_->SetBaudRate(baud);
}

bool SerialPort::TakeLine(uint32_t waitMs) {
  return exchangeEvent_.Wait(waitMs) == platform::WaitResult::Signalled;
}

void SerialPort::ReleaseLine() { exchangeEvent_.Set(); }

}  // namespace scopemount
