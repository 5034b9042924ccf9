// A behavioural model of a mount's controller, as the bench hosts it: bytes
// from the host go in, replies come out. Each protocol supplies its own
// model; the bench adds the wire (echo, modem lines) and the faults.
#pragma once

#include <cstddef>
#include <cstdint>

namespace scopemount::emulation {

// Where a model puts its answers.
class ReplySink {
 public:
  virtual ~ReplySink() = default;
  // Called once per command the controller has taken, with the answer (an
  // empty one, count 0, for a command the protocol does not answer), so the
  // bench can count commands and apply its faults reply by reply.
  virtual void Reply(const uint8_t* bytes, size_t count) = 0;
};

class ControllerModel {
 public:
  virtual ~ControllerModel() = default;
  // Takes bytes as they come off the wire (a command may arrive in pieces,
  // or several in one piece) at `nowMs` of the bench's clock.
  virtual void Receive(const uint8_t* bytes, size_t count, uint64_t nowMs, ReplySink& sink) = 0;
};

}  // namespace scopemount::emulation
