// Serial devices over POSIX terminals: real serial lines, USB adapters,
// RFCOMM terminals and pseudo-terminals alike.
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "platform/clock.h"
#include "platform/never_destroyed.h"
#include "platform/serial_device.h"

namespace scopemount::platform {

namespace {

struct BaudSetting {
  uint32_t baud;
  speed_t speed;
};

constexpr BaudSetting BAUD_SETTINGS[] = {
    {1200, B1200},   {2400, B2400},   {4800, B4800},   {9600, B9600},
    {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200},
};

bool SpeedOf(uint32_t baud, speed_t* speed) {
  for (const BaudSetting& setting : BAUD_SETTINGS) {
    if (setting.baud == baud) {
      *speed = setting.speed;
      return true;
    }
  }
  return false;
}

// Raw bytes, 8 data bits, no parity, one stop bit, no hardware or software
// flow control, reads that never block (the port does its own waiting).
void MakeRaw8N1(termios& settings) {
  cfmakeraw(&settings);
  settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | CSTOPB | CRTSCTS);
  settings.c_cflag |= CS8 | CLOCAL | CREAD;
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY | INPCK);
  settings.c_cc[VMIN] = 0;
  settings.c_cc[VTIME] = 0;
}

// The time left until `ms` of the active clock have passed, in wall time.
timespec WallTimeFor(uint32_t ms) {
  const auto left = ActiveClock().RealDeadlineAfter(ms) - std::chrono::steady_clock::now();
  const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
  if (ns <= 0) return {0, 0};
  return {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
}

class PosixSerialDevice final : public SerialDevice {
 public:
  explicit PosixSerialDevice(int fd) : fd_(fd) {}
  ~PosixSerialDevice() override { close(fd_); }
  PosixSerialDevice(const PosixSerialDevice&) = delete;
  PosixSerialDevice& operator=(const PosixSerialDevice&) = delete;

  bool Configure() {
    termios settings{};
    if (tcgetattr(fd_, &settings) != 0) return false;
    MakeRaw8N1(settings);
    if (tcsetattr(fd_, TCSANOW, &settings) != 0) return false;
    SetModemLine(TIOCM_DTR, false);
    SetModemLine(TIOCM_RTS, false);
    return SetBaudRate(DEFAULT_BAUD_RATE);
  }

  bool SetBaudRate(uint32_t baud) override {
    speed_t speed;
    termios settings{};
    if (!SpeedOf(baud, &speed) || tcgetattr(fd_, &settings) != 0) return false;
    cfsetispeed(&settings, speed);
    cfsetospeed(&settings, speed);
    return tcsetattr(fd_, TCSANOW, &settings) == 0;
  }

  bool WaitReadable(uint32_t ms) override { return WaitFor(POLLIN, ms); }
  bool WaitWritable(uint32_t ms) override { return WaitFor(POLLOUT, ms); }

  // What was received before a hang-up can still be read; after that the
  // line is dead.
  long ReadAvailable(uint8_t* buffer, size_t size) override {
    const long moved = Outcome(read(fd_, buffer, size));
    return moved == 0 && hungUp_ ? SERIAL_IO_FAILED : moved;
  }

  long WriteAvailable(const uint8_t* bytes, size_t count) override {
    return Outcome(write(fd_, bytes, count));
  }

  // Only what has arrived is stale. A write here returns once the bytes are
  // queued, not sent; flushing the output too would drop the previous
  // command before it left, and a command that gets no reply would be lost
  // without a trace.
  void Purge() override { tcflush(fd_, TCIFLUSH); }

  void SetRts(bool high) override { SetModemLine(TIOCM_RTS, high); }

  bool IsCtsHigh() override {
    int lines = 0;
    return ioctl(fd_, TIOCMGET, &lines) == 0 && (lines & TIOCM_CTS) != 0;
  }

 private:
  // A line that hung up (adapter unplugged, far end gone) reads as always
  // ready; remembering it lets the port give up at once instead of polling
  // it until its time-out.
  bool WaitFor(short events, uint32_t ms) {
    pollfd target{fd_, events, 0};
    const timespec wait = WallTimeFor(ms);
    if (ppoll(&target, 1, &wait, nullptr) <= 0) return false;
    if ((target.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) hungUp_ = true;
    return true;
  }

  // Interrupted or would-block calls moved nothing; the caller tries again.
  static long Outcome(ssize_t moved) {
    if (moved >= 0) return static_cast<long>(moved);
    if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) return 0;
    return SERIAL_IO_FAILED;
  }

  // Terminals without modem lines (pseudo-terminals) refuse this; that is
  // not an error for the port.
  void SetModemLine(int line, bool high) {
    ioctl(fd_, high ? TIOCMBIS : TIOCMBIC, &line);
  }

  const int fd_;
  bool hungUp_ = false;
};

class PosixFactory final : public SerialDeviceFactory {
 public:
  std::unique_ptr<SerialDevice> Open(const char* path) override {
    const int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return nullptr;
    // One program at a time on a line, like an unshared open elsewhere.
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
      close(fd);
      return nullptr;
    }
    auto device = std::make_unique<PosixSerialDevice>(fd);
    if (!device->Configure()) return nullptr;
    return device;
  }
};

}  // namespace

// Never destroyed, like every process-wide platform object: workers may
// outlive main.
SerialDeviceFactory& SystemSerialDeviceFactory() {
  static NeverDestroyed<PosixFactory> factory;
  return factory.get();
}

}  // namespace scopemount::platform
