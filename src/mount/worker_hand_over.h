// How worker threads take the axes from each other and give them back, and
// the reference every worker holds on its mount while it runs.
#pragma once

#include <cstdint>

#include "mount/mount.h"

namespace scopemount {

// Whether a worker that wants the axes interrupts the one holding them
// (slews and manual motion) or waits for it to finish (tracking start).
enum class TakeOver { Interrupt, WaitForFinish };

// Waits at most `waitMs` for workerIdleEvent (setting abortRequest during
// the wait when interrupting), then claims the axes and resets the event.
// False when the wait timed out: nothing was touched, the worker ends with
// AxisBusy.
// `driven` is the mask of the axes the worker will command (bit 0 for axis
// 0, bit 1 for axis 1): a stop of another axis need not wait for it.
// An interrupting worker serves `request`: once a newer request holds any
// driven axis it neither interrupts nor claims (false at once), so a worker
// that started late never takes the axes from the newer one's worker.
bool TakeOverAxes(Mount& mount, uint32_t waitMs, TakeOver how, uint32_t driven,
                  uint32_t request);

inline constexpr uint32_t AxisBit(uint32_t axis) { return 1u << axis; }
inline constexpr uint32_t BOTH_AXES = 3u;

// Gives the axes back: exactly once per successful TakeOverAxes.
void HandBackAxes(Mount& mount);

// The reference a worker thread holds on its mount; released as the thread
// function returns, which may delete the mount, so it must be the first
// object the thread function creates.
class WorkerReference {
 public:
  explicit WorkerReference(Mount& mount) : mount_(mount) {}
  ~WorkerReference() { mount_.Release(); }
  WorkerReference(const WorkerReference&) = delete;
  WorkerReference& operator=(const WorkerReference&) = delete;

 private:
  Mount& mount_;
};

}  // namespace scopemount
