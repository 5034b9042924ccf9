// Serial devices on Windows: COM ports through CreateFileW and the comm
// API. Reads never block (the port above does its own waiting and applies
// the read time-outs); writes are bounded by the driver's write time-outs.
#include <windows.h>

#include <algorithm>
#include <chrono>

#include "platform/clock.h"
#include "platform/never_destroyed.h"
#include "platform/serial_device.h"

namespace scopemount::platform {

namespace {

constexpr uint32_t BAUD_RATES[] = {1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200};

// A write must be handed over within 30 ms plus 2 ms a byte.
constexpr DWORD WRITE_TOTAL_PER_BYTE_MS = 2;
constexpr DWORD WRITE_TOTAL_CONSTANT_MS = 30;

// How often an idle line is looked at while a wait for input runs.
constexpr DWORD INPUT_POLL_MS = 1;

constexpr int MAX_WIDE_PATH = 512;

bool IsSupportedRate(uint32_t baud) {
  return std::find(std::begin(BAUD_RATES), std::end(BAUD_RATES), baud) != std::end(BAUD_RATES);
}

// Raw bytes, 8 data bits, no parity, one stop bit, no hardware or software
// flow control, DTR and RTS held low.
void MakeRaw8N1(DCB& dcb) {
  dcb.fBinary = TRUE;
  dcb.fOutxCtsFlow = FALSE;
  dcb.fOutxDsrFlow = FALSE;
  dcb.fDtrControl = DTR_CONTROL_DISABLE;
  dcb.fDsrSensitivity = FALSE;
  dcb.fTXContinueOnXoff = TRUE;
  dcb.fOutX = FALSE;
  dcb.fInX = FALSE;
  dcb.fErrorChar = FALSE;
  dcb.fNull = FALSE;
  dcb.fRtsControl = RTS_CONTROL_DISABLE;
  dcb.fAbortOnError = FALSE;
  dcb.ByteSize = 8;
  dcb.fParity = FALSE;
  dcb.Parity = NOPARITY;
  dcb.StopBits = ONESTOPBIT;
}

// Reads return at once with whatever has arrived.
COMMTIMEOUTS NonBlockingReads() {
  COMMTIMEOUTS timeouts{};
  timeouts.ReadIntervalTimeout = MAXDWORD;
  timeouts.ReadTotalTimeoutMultiplier = 0;
  timeouts.ReadTotalTimeoutConstant = 0;
  timeouts.WriteTotalTimeoutMultiplier = WRITE_TOTAL_PER_BYTE_MS;
  timeouts.WriteTotalTimeoutConstant = WRITE_TOTAL_CONSTANT_MS;
  return timeouts;
}

DWORD ChunkOf(size_t size) { return static_cast<DWORD>(std::min<size_t>(size, MAXDWORD)); }

class WindowsSerialDevice final : public SerialDevice {
 public:
  explicit WindowsSerialDevice(HANDLE handle) : handle_(handle) {}
  ~WindowsSerialDevice() override { CloseHandle(handle_); }
  WindowsSerialDevice(const WindowsSerialDevice&) = delete;
  WindowsSerialDevice& operator=(const WindowsSerialDevice&) = delete;

  bool Configure() {
    DCB dcb{};
    dcb.DCBlength = sizeof dcb;
    if (!GetCommState(handle_, &dcb)) return false;
    MakeRaw8N1(dcb);
    dcb.BaudRate = DEFAULT_BAUD_RATE;
    if (!SetCommState(handle_, &dcb)) return false;
    COMMTIMEOUTS timeouts = NonBlockingReads();
    if (!SetCommTimeouts(handle_, &timeouts)) return false;
    // Lines without modem control (some adapters, emulated ports) refuse
    // these; that is not an error for the port.
    EscapeCommFunction(handle_, CLRDTR);
    EscapeCommFunction(handle_, CLRRTS);
    return true;
  }

  bool SetBaudRate(uint32_t baud) override {
    DCB dcb{};
    dcb.DCBlength = sizeof dcb;
    if (!IsSupportedRate(baud) || !GetCommState(handle_, &dcb)) return false;
    dcb.BaudRate = baud;
    return SetCommState(handle_, &dcb) != FALSE;
  }

  // The comm API has no bounded wait for input short of overlapped I/O;
  // the queue's fill level is looked at every millisecond instead. A line
  // whose status cannot be read is reported ready, so the read that
  // follows finds it broken.
  bool WaitReadable(uint32_t ms) override {
    const auto deadline = ActiveClock().RealDeadlineAfter(ms);
    for (;;) {
      DWORD errors = 0;
      COMSTAT status{};
      if (!ClearCommError(handle_, &errors, &status) || status.cbInQue > 0) return true;
      if (std::chrono::steady_clock::now() >= deadline) return false;
      ::Sleep(INPUT_POLL_MS);
    }
  }

  // The driver queues what is written; a write that moved nothing within
  // its time-out is tried again after a short pause.
  bool WaitWritable(uint32_t ms) override {
    if (ms > 0) ::Sleep(INPUT_POLL_MS);
    return true;
  }

  long ReadAvailable(uint8_t* buffer, size_t size) override {
    DWORD moved = 0;
    if (!ReadFile(handle_, buffer, ChunkOf(size), &moved, nullptr)) return SERIAL_IO_FAILED;
    return static_cast<long>(moved);
  }

  long WriteAvailable(const uint8_t* bytes, size_t count) override {
    DWORD moved = 0;
    if (!WriteFile(handle_, bytes, ChunkOf(count), &moved, nullptr)) return SERIAL_IO_FAILED;
    return static_cast<long>(moved);
  }

  // Only what has arrived is stale: what was written before still goes
  // out, so a command that gets no reply is not dropped unseen.
  void Purge() override { PurgeComm(handle_, PURGE_RXCLEAR); }

  void SetRts(bool high) override { EscapeCommFunction(handle_, high ? SETRTS : CLRRTS); }

  bool IsCtsHigh() override {
    DWORD lines = 0;
    return GetCommModemStatus(handle_, &lines) && (lines & MS_CTS_ON) != 0;
  }

 private:
  const HANDLE handle_;
};

class WindowsFactory final : public SerialDeviceFactory {
 public:
  // Paths are UTF-8 ("COM3", "\\.\COM12").
  std::unique_ptr<SerialDevice> Open(const char* path) override {
    wchar_t name[MAX_WIDE_PATH];
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, -1, name, MAX_WIDE_PATH) == 0) {
      return nullptr;
    }
    // Not shared: one program at a time on a line.
    const HANDLE handle = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return nullptr;
    auto device = std::make_unique<WindowsSerialDevice>(handle);
    if (!device->Configure()) return nullptr;
    return device;
  }
};

}  // namespace

// Never destroyed, like every process-wide platform object: workers may
// outlive the host's main.
SerialDeviceFactory& SystemSerialDeviceFactory() {
  static NeverDestroyed<WindowsFactory> factory;
  return factory.get();
}

}  // namespace scopemount::platform
