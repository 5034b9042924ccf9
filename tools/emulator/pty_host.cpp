#include "pty_host.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

namespace scopemount::emulation {

namespace {

constexpr size_t CHUNK = 256;
// How long a reply may wait for room in the pseudo-terminal (a client that
// stopped reading) before it is dropped.
constexpr int WRITE_ROOM_WAIT_MS = 100;

timespec WallTimeUntil(std::chrono::steady_clock::time_point instant) {
  const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                      instant - std::chrono::steady_clock::now())
                      .count();
  if (ns <= 0) return {0, 0};
  return {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
}

void CloseIfOpen(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

}  // namespace

PtyHost::PtyHost(EmulatedLine& line) : line_(line) {}

PtyHost::~PtyHost() { Stop(); }

bool PtyHost::Start() {
  if (server_.joinable()) return true;
  char name[128];
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  bool ready = master_ >= 0 && grantpt(master_) == 0 && unlockpt(master_) == 0 &&
               ptsname_r(master_, name, sizeof name) == 0;
  if (ready) slave_ = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios settings{};
  ready = ready && slave_ >= 0 && tcgetattr(slave_, &settings) == 0;
  if (ready) {
    // Raw bytes both ways: no echo, no line editing, no newline mapping.
    cfmakeraw(&settings);
    ready = tcsetattr(slave_, TCSANOW, &settings) == 0 &&
            fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK) == 0 &&
            pipe2(stopPipe_, O_CLOEXEC) == 0;
  }
  if (!ready) {
    CloseAll();
    return false;
  }
  path_ = name;
  server_ = std::thread(&PtyHost::Serve, this);
  return true;
}

void PtyHost::Stop() {
  if (server_.joinable()) {
    const char stop = 1;
    while (write(stopPipe_[1], &stop, 1) < 0 && errno == EINTR) {
    }
    server_.join();
  }
  CloseAll();
}

void PtyHost::CloseAll() {
  CloseIfOpen(master_);
  CloseIfOpen(slave_);
  CloseIfOpen(stopPipe_[0]);
  CloseIfOpen(stopPipe_[1]);
}

// Sleeps until the host writes, a reply byte is due, or Stop is called.
void PtyHost::Serve() {
  for (;;) {
    const uint64_t nextMs = line_.NextArrivalMs();
    timespec wait{};
    if (nextMs != NO_ARRIVAL) wait = WallTimeUntil(line_.Clock().RealInstantOf(nextMs));
    pollfd watched[2] = {{master_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
    if (ppoll(watched, 2, nextMs == NO_ARRIVAL ? nullptr : &wait, nullptr) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (watched[1].revents != 0) return;
    if ((watched[0].revents & (POLLERR | POLLNVAL)) != 0) return;
    if ((watched[0].revents & POLLIN) != 0 && !PassHostBytes()) return;
    if (!DeliverArrivals()) return;
  }
}

bool PtyHost::PassHostBytes() {
  uint8_t bytes[CHUNK];
  const ssize_t count = read(master_, bytes, sizeof bytes);
  if (count > 0) line_.HostWrite(bytes, static_cast<size_t>(count));
  return count >= 0 || errno == EINTR || errno == EAGAIN || errno == EIO;
}

bool PtyHost::DeliverArrivals() {
  uint8_t bytes[CHUNK];
  size_t count;
  while ((count = line_.HostRead(bytes, sizeof bytes)) > 0) {
    size_t written = 0;
    while (written < count) {
      const ssize_t moved = write(master_, bytes + written, count - written);
      if (moved > 0) {
        written += static_cast<size_t>(moved);
      } else if (errno == EAGAIN) {
        pollfd room{master_, POLLOUT, 0};
        if (poll(&room, 1, WRITE_ROOM_WAIT_MS) <= 0) break;
      } else if (errno != EINTR) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace scopemount::emulation
