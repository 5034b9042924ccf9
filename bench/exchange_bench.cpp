// Round trips of SerialPort::Exchange against an instant responder on a
// pseudo-terminal, beside a bare write/read loop over the same kind of
// pseudo-terminal. On a real line a round trip is bounded by the wire, not
// by the processor, so what matters is the caller's CPU time per exchange
// and its share of the time the same bytes take on the wire at each of the
// protocols' rates. Wall time on a pseudo-terminal mostly measures the
// scheduler (two threads hand bytes back and forth), so it is shown but not
// the figure to judge by; the bare loop is the reference for both.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
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

// 8N1: a start bit, eight data bits and a stop bit per byte.
constexpr double BITS_PER_BYTE_ON_WIRE = 10.0;
constexpr double BYTES_PER_ROUND_TRIP = COMMAND_LENGTH + REPLY_LENGTH;
// The three protocols' line rates.
constexpr int LINE_RATES[] = {4800, 9600, 19200};

// CPU time of the calling thread (the responder's time is not the caller's).
double ThreadCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Counters: the caller's CPU time per round trip in microseconds, and that
// time as a percentage of the round trip's bytes on the wire at each rate.
void ReportCpuPerRoundTrip(benchmark::State& state, double cpuSeconds) {
  if (state.iterations() == 0) return;
  const double perRoundTrip = cpuSeconds / static_cast<double>(state.iterations());
  state.counters["cpu_us"] = perRoundTrip * 1e6;
  for (const int baud : LINE_RATES) {
    const double wireSeconds = BYTES_PER_ROUND_TRIP * BITS_PER_BYTE_ON_WIRE / baud;
    state.counters["wire%_" + std::to_string(baud)] = 100.0 * perRoundTrip / wireSeconds;
  }
}

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
    const double cpuStart = ThreadCpuSeconds();
    for (auto _ : state) {
      if (port.Exchange(COMMAND, COMMAND_LENGTH, reply) != scopemount::EXCHANGE_OK) {
        state.SkipWithError("exchange failed");
        break;
      }
      benchmark::DoNotOptimize(reply);
    }
    ReportCpuPerRoundTrip(state, ThreadCpuSeconds() - cpuStart);
  }
  scopemount::platform::BindPortPath(BENCH_PORT, nullptr);
  scopemount::SetPortNumber(scopemount::DEFAULT_PORT_NUMBER);
}
BENCHMARK(BM_Exchange)->UseRealTime();

// The same round trip written by hand: write the command, block until the
// reply's bytes are in.
void BM_BareWriteRead(benchmark::State& state) {
  InstantResponder responder;
  const int fd = open(responder.path().c_str(), O_RDWR | O_NOCTTY);
  if (fd < 0) state.SkipWithError("no pseudo-terminal");
  uint8_t reply[REPLY_LENGTH];
  const double cpuStart = ThreadCpuSeconds();
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
  ReportCpuPerRoundTrip(state, ThreadCpuSeconds() - cpuStart);
  if (fd >= 0) close(fd);
}
BENCHMARK(BM_BareWriteRead)->UseRealTime();

}  // namespace
