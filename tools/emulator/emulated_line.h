// The emulation bench: a controller model on an emulated serial line, with
// the wire's own behaviour (echo, modem lines) and injected faults.
//
// The host side (the library's port, through an in-process device or a
// pseudo-terminal) writes commands and reads whatever has arrived by now;
// replies are given arrival times, so late and slow replies really come
// late on the bench's clock. Safe to use from several threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <mutex>
#include <vector>

#include "controller_model.h"
#include "emulator_clock.h"

namespace scopemount::emulation {

inline constexpr uint64_t NO_ARRIVAL = std::numeric_limits<uint64_t>::max();
inline constexpr size_t NO_LIMIT = std::numeric_limits<size_t>::max();

// What goes wrong with the controller's replies, from now on.
struct LineFaults {
  bool silent = false;                  // no reply at all
  uint32_t replyDelayMs = 0;            // each reply starts this late
  uint32_t byteGapMs = 0;               // time between two bytes of a reply
  std::vector<uint8_t> garbage{};       // noise sent before each reply
  size_t truncateTo = NO_LIMIT;         // replies cut to this many bytes
  size_t stopAfterCommands = NO_LIMIT;  // commands answered before it goes quiet
};

// How the line is wired.
struct LineWiring {
  bool echo = false;           // the wire returns every byte the host sends
  bool rtsLoopsToCts = false;  // the cable loops RTS back to CTS
  bool ctsHeldHigh = false;    // another device holds CTS high
};

class EmulatedLine {
 public:
  EmulatedLine(ControllerModel& model, const EmulatorClock& clock);
  EmulatedLine(const EmulatedLine&) = delete;
  EmulatedLine& operator=(const EmulatedLine&) = delete;

  void SetFaults(const LineFaults& faults);
  void SetWiring(const LineWiring& wiring);
  const EmulatorClock& Clock() const { return clock_; }

  // The host's end of the line.
  void HostWrite(const uint8_t* bytes, size_t count);
  // Bytes that have arrived by now, oldest first.
  size_t HostRead(uint8_t* buffer, size_t size);
  // Drops what has arrived; bytes still on their way keep coming.
  void HostPurge();
  void SetHostRts(bool high);
  bool IsHostCtsHigh() const;
  // When the next byte arrives (or arrived): NO_ARRIVAL if none is coming.
  uint64_t NextArrivalMs() const;

  // Everything the host has written since the last call.
  std::vector<uint8_t> TakeHostBytes();
  size_t CommandsSeen() const;
  bool IsHostRtsHigh() const;

 private:
  class FaultySink;
  struct Arrival {
    uint64_t atMs;
    uint8_t byte;
  };
  void Enqueue(const uint8_t* bytes, size_t count, uint64_t startMs, uint32_t gapMs);

  ControllerModel& model_;
  const EmulatorClock& clock_;
  mutable std::mutex mutex_;
  LineFaults faults_;
  LineWiring wiring_;
  bool hostRts_ = false;
  size_t commandsSeen_ = 0;
  std::deque<Arrival> incoming_;  // to the host, in arrival order
  std::vector<uint8_t> hostBytes_;
};

}  // namespace scopemount::emulation
