// The serial device under a mount's serial port: a seam, so the same port
// code runs over a real line (or a pseudo-terminal) and, in tests, over an
// emulated controller in the same process.
//
// A device moves bytes without blocking and waits for readiness with a
// bound; how long a read or a write may take as a whole is decided by the
// serial port above it, not here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace scopemount::platform {

// The line rate a freshly opened device runs at, until a protocol sets its own.
inline constexpr uint32_t DEFAULT_BAUD_RATE = 9600;

// What ReadAvailable and WriteAvailable return when the device is broken
// (as opposed to 0: nothing could be moved right now, or the call was
// interrupted; the caller simply tries again within its time-out).
inline constexpr long SERIAL_IO_FAILED = -1;

class SerialDevice {
 public:
  virtual ~SerialDevice() = default;

  // Raw 8N1 at `baud`; false when the device refuses the rate.
  virtual bool SetBaudRate(uint32_t baud) = 0;

  // Waits at most `ms` of the active clock until a byte can be read (or
  // written). True when the device is ready, false when the wait ended
  // without it (time passed, or a signal interrupted the wait).
  virtual bool WaitReadable(uint32_t ms) = 0;
  virtual bool WaitWritable(uint32_t ms) = 0;

  // Moves as many bytes as are possible now without blocking: the count, 0
  // when none, SERIAL_IO_FAILED when the device is broken.
  virtual long ReadAvailable(uint8_t* buffer, size_t size) = 0;
  virtual long WriteAvailable(const uint8_t* bytes, size_t count) = 0;

  // Drops unread input; what was written still goes out.
  virtual void Purge() = 0;

  // Modem lines. A device without them reads CTS low and takes RTS changes
  // silently.
  virtual void SetRts(bool high) = 0;
  virtual bool IsCtsHigh() = 0;
};

// Opens serial devices by path. The system one opens the platform's serial
// lines (POSIX terminals, Windows COM ports); tests install their own to put
// an emulated controller behind a port.
class SerialDeviceFactory {
 public:
  virtual ~SerialDeviceFactory() = default;
  // An open device at DEFAULT_BAUD_RATE, raw 8N1, no flow control, DTR and
  // RTS low; null when the path cannot be opened as a serial device.
  virtual std::unique_ptr<SerialDevice> Open(const char* path) = 0;
};

// Opens `path` through the active factory.
std::unique_ptr<SerialDevice> OpenSerialDevice(const char* path);

// Makes `factory` the active one (null restores the system factory). Swap
// only while no port is being opened.
void UseSerialDeviceFactory(SerialDeviceFactory* factory);

// The system factory itself (for tests that want a real terminal while a
// replacement is installed); one definition per platform back end.
SerialDeviceFactory& SystemSerialDeviceFactory();

}  // namespace scopemount::platform
