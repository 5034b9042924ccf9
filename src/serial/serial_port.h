// The one serial line of a hardware mount, and the command/reply exchange
// that every protocol layer runs over it.
//
// A protocol layer derives from SerialPort, supplies its reply reader and,
// where its wiring needs it, RTS/CTS handling through the hooks. Exchange
// runs one command at a time across threads: whoever has taken
// exchangeEvent owns the line until the exchange ends.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/event.h"
#include "platform/serial_device.h"

namespace scopemount {

// Exchange results shared by every layer.
inline constexpr uint32_t EXCHANGE_OK = 0;
inline constexpr uint32_t EXCHANGE_NOT_SENT = 1;  // write failed, or AfterSend refused
inline constexpr uint32_t EXCHANGE_LINE_BUSY = 5;  // the line stayed taken too long

// How long a command waits for the line before it gives up.
inline constexpr uint32_t EXCHANGE_WAIT_MS = 2000;

// The line's time-outs, the same for every protocol: a read of n bytes
// returns what has arrived once READ_TOTAL_CONSTANT_MS + n *
// READ_TOTAL_PER_BYTE_MS have passed in all, or READ_INTERVAL_MS pass
// between two bytes; a write of n bytes fails once WRITE_TOTAL_CONSTANT_MS +
// n * WRITE_TOTAL_PER_BYTE_MS have passed.
inline constexpr uint32_t READ_INTERVAL_MS = 30;
inline constexpr uint32_t READ_TOTAL_PER_BYTE_MS = 2;
inline constexpr uint32_t READ_TOTAL_CONSTANT_MS = 500;
inline constexpr uint32_t WRITE_TOTAL_PER_BYTE_MS = 2;
inline constexpr uint32_t WRITE_TOTAL_CONSTANT_MS = 30;

class SerialPort {
 public:
  SerialPort(const SerialPort&) = delete;
  SerialPort& operator=(const SerialPort&) = delete;
  virtual ~SerialPort();

  // One complete transaction: EXCHANGE_OK, EXCHANGE_LINE_BUSY,
  // EXCHANGE_NOT_SENT, or whatever the layer's ReceiveReply returned.
  // `reply` belongs to the caller and must hold the protocol's longest reply.
  uint32_t Exchange(const uint8_t* command, uint32_t count, uint8_t* reply);

  // True when the port opened; a port that did not fails every exchange.
  bool IsOpen() const { return device_ != nullptr; }

  // Set by the protocol layers (the controller version read at opening).
  uint32_t boardVersion = 0;
  // 1 when the line does not return RTS on CTS, so RTS/CTS waiting must be
  // skipped. Set by the protocol layers, never here.
  uint32_t noHandshake = 0;
  // Bytes passed to the last Send (a layer reading back its own echo
  // needs it).
  uint32_t lastSendLength = 0;

 protected:
  // Opens the port that PortNumber() names, read once here: raw 8N1 at the
  // default rate, no flow control, DTR and RTS low. When it cannot be
  // opened the object still exists and every exchange fails.
  SerialPort();

  // The line-discipline hooks, in the order Exchange calls them. A hook must
  // never call Exchange: the line is not re-entrant.
  virtual uint32_t BeginExchange();  // result ignored by Exchange
  // 0 when every byte was written within the write time-out, 1 otherwise;
  // records the count in lastSendLength either way.
  virtual uint32_t Send(const uint8_t* bytes, uint32_t count);
  virtual uint32_t AfterSend();  // nonzero: go on and read the reply
  // 0 when a reply was read, nonzero on failure (passed on by Exchange).
  virtual uint32_t ReceiveReply(uint8_t* reply) = 0;
  virtual void EndExchange();  // always called, also after a failed send

  // Whether the cable returns RTS on CTS: 1 when it does, 0 when CTS
  // stayed high throughout the wait or did not follow RTS.
  uint32_t CheckLine();

  // Line operations for the hooks. Read returns the number of bytes that
  // arrived within the read time-outs (0 means no answer came).
  uint32_t Read(uint8_t* buffer, uint32_t count);
  bool Write(const uint8_t* bytes, uint32_t count);
  void Purge();
  void SetRts();
  void ClearRts();
  bool IsCtsHigh();
  // The protocol's own line rate; false when the port is closed or the
  // device refuses the rate.
  bool SetBaudRate(uint32_t baud);

  // Taking the line outside Exchange (a layer that probes the line itself):
  // false when it stayed taken for `waitMs`.
  bool TakeLine(uint32_t waitMs = EXCHANGE_WAIT_MS);
  void ReleaseLine();

 private:
  std::unique_ptr<platform::SerialDevice> device_;
  platform::Event exchangeEvent_{false, true};
};

}  // namespace scopemount
