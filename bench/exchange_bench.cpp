// Round trips of SerialPort::Exchange against an instant responder on a
// pseudo-terminal, beside a bare write/read loop over the same kind of
// pseudo-terminal: the ratio is what the exchange's discipline (line taken
// and released, purge, time-out bookkeeping, hooks) costs per command.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>

#include "platform/port_names.h"
#include "serial/port_selection.h"
#include "serial/serial_port.h"

namespace {

constexpr uint8_t COMMAND[] = {':', 'j', '1', '\r', 0, 0};
constexpr size_t COMMAND_LENGTH = 6;
constexpr uint8_t REPLY[] = {'=', '0', '0', '\r'};
constexpr uint32_t REPLY_LENGTH = 4;
constexpr int32_t BENCH_PORT = 42;

// The far end of a pseudo-terminal that answers every command at once.
class InstantResponder {
 public:
  InstantResponder() {
    master_ = posix_openpt(O_RDWR | O_NOCTTY);
    char name[128] = "";
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0 ||
        ptsname_r(master_, name, sizeof name) != 0 || pipe(stop_) != 0) {
      return;
    }
    path_ = name;
    // Raw line discipline at the slave end (shared by everyone who opens it).
    hold_ = open(name, O_RDWR | O_NOCTTY);
    termios settings{};
    tcgetattr(hold_, &settings);
    cfmakeraw(&settings);
    tcsetattr(hold_, TCSANOW, &settings);
    responder_ = std::thread([this] { Respond(); });
  }
  ~InstantResponder() {
    if (responder_.joinable()) {
      const char stop = 1;
      if (write(stop_[1], &stop, 1) == 1) responder_.join();
    }
    for (int fd : {master_, hold_, stop_[0], stop_[1]}) {
      if (fd >= 0) close(fd);
    }
  }
  const std::string& path() const { return path_; }

 private:
  void Respond() {
    size_t pending = 0;
    uint8_t buffer[256];
    for (;;) {
      pollfd watched[2] = {{master_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
      if (poll(watched, 2, -1) < 0) continue;
      if (watched[1].revents != 0) return;
      const ssize_t count = read(master_, buffer, sizeof buffer);
      if (count <= 0) continue;
      for (pending += static_cast<size_t>(count); pending >= COMMAND_LENGTH;
           pending -= COMMAND_LENGTH) {
        if (write(master_, REPLY, REPLY_LENGTH) != REPLY_LENGTH) return;
      }
    }
  }

  int master_ = -1;
  int hold_ = -1;
  int stop_[2] = {-1, -1};
  std::string path_;
  std::thread responder_;
};

class FixedReplyPort final : public scopemount::SerialPort {
 protected:
  uint32_t ReceiveReply(uint8_t* reply) override {
    return Read(reply, REPLY_LENGTH) == REPLY_LENGTH ? scopemount::EXCHANGE_OK
                                                     : scopemount::EXCHANGE_NOT_SENT;
  }
};

void BM_Exchange(benchmark::State& state) {
  InstantResponder responder;
  scopemount::platform::BindPortPath(BENCH_PORT, responder.path().c_str());
  scopemount::SetPortNumber(BENCH_PORT);
  {
    FixedReplyPort port;
    if (!port.IsOpen()) state.SkipWithError("no pseudo-terminal");
    uint8_t reply[REPLY_LENGTH];
    for (auto _ : state) {
      if (port.Exchange(COMMAND, COMMAND_LENGTH, reply) != scopemount::EXCHANGE_OK) {
        state.SkipWithError("exchange failed");
        break;
      }
      benchmark::DoNotOptimize(reply);
    }
  }
  scopemount::platform::BindPortPath(BENCH_PORT, nullptr);
  scopemount::SetPortNumber(scopemount::DEFAULT_PORT_NUMBER);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Exchange)->UseRealTime();

// The same round trip written by hand: write the command, block until the
// reply's bytes are in.
void BM_BareWriteRead(benchmark::State& state) {
  InstantResponder responder;
  const int fd = open(responder.path().c_str(), O_RDWR | O_NOCTTY);
  if (fd < 0) state.SkipWithError("no pseudo-terminal");
  uint8_t reply[REPLY_LENGTH];
  for (auto _ : state) {
    if (write(fd, COMMAND, COMMAND_LENGTH) != static_cast<ssize_t>(COMMAND_LENGTH)) {
      state.SkipWithError("write failed");
      break;
    }
    for (size_t received = 0; received < REPLY_LENGTH;) {
      const ssize_t count = read(fd, reply + received, REPLY_LENGTH - received);
      if (count > 0) received += static_cast<size_t>(count);
    }
    benchmark::DoNotOptimize(reply);
  }
  if (fd >= 0) close(fd);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BareWriteRead)->UseRealTime();

}  // namespace
