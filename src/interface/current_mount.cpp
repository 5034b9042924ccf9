#include "interface/current_mount.h"

#include <atomic>
#include <new>

#include "geometry/altaz_simulator.h"
#include "geometry/equatorial_simulator.h"
#include "interface/messages.h"
#include "protocols/auxbus/aux_mounts.h"
#include "protocols/compact/compact_altaz_mounts.h"
#include "protocols/motorcontroller/motor_controller_altaz_mount.h"
#include "protocols/motorcontroller/motor_controller_equatorial_mount.h"

namespace scopemount {

namespace {

template <typename MountClass>
std::unique_ptr<Mount> Make() {
  return std::make_unique<MountClass>();
}

// Model numbers map onto eight driver classes. Models 6 and 7 are the
// simulators, which need no hardware. A model without a factory (a test may
// remove one) reports NotImplemented.
MountFactory modelFactories[MODEL_COUNT] = {
    &Make<AuxAltAzMount>,                   // 0
    &Make<AuxEquatorialMount>,              // 1
    &Make<MotorControllerAltAzMount>,       // 2
    &Make<MotorControllerEquatorialMount>,  // 3
    &Make<MotorControllerEquatorialMount>,  // 4
    &Make<MotorControllerAltAzMount>,       // 5
    &Make<EquatorialSimulator>,             // 6
    &Make<AltAzSimulator>,                  // 7
    &Make<CompactAltAzMountSmall>,          // 8
    &Make<CompactAltAzMountLarge>,          // 9
    &Make<CompactAltAzMountSmall>,          // 10
    &Make<CompactAltAzMountLarge>,          // 11
};

// The library's reference to the connected mount. Worker threads hold
// references of their own (see Mount's lifetime), so disconnecting stops the
// workers with bounded waits and drops this reference; a worker that was
// late to end frees the mount itself and never touches freed memory.
std::atomic<Mount*> currentMount{nullptr};

}  // namespace

Mount* CurrentMount() { return currentMount.load(std::memory_order_acquire); }

int32_t ConnectMount(int32_t model, double latitude, double elevation) {
  if (Mount* connected = CurrentMount()) {
    if (connected->modelId != model) return AlreadyConnected;
    connected->SetSite(latitude, elevation);
    return Ok;
  }
  if (static_cast<uint32_t>(model) >= static_cast<uint32_t>(MODEL_COUNT)) return InvalidMountId;
  const MountFactory create = modelFactories[model];
  if (create == nullptr) return NotImplemented;
  std::unique_ptr<Mount> mount;
  try {
    mount = create();
  } catch (const std::bad_alloc&) {
    mount.reset();
  }
  // Out of memory has no code of its own; the mount simply is not there.
  if (!mount) return NotImplemented;
  Mount* connected = mount.release();
  currentMount.store(connected, std::memory_order_release);
  // A site out of range is not reported here; SetSite keeps what it took.
  connected->SetSite(latitude, elevation);
  const int32_t opened = connected->OpenMount();
  if (opened != Ok) {
    DisconnectMount();
    return opened;
  }
  return Ok;
}

void DisconnectMount() {
  Mount* connected = currentMount.exchange(nullptr, std::memory_order_acq_rel);
  if (connected != nullptr) MountReleaser()(connected);
}

MountFactory ReplaceModelFactory(int32_t model, MountFactory factory) {
  if (static_cast<uint32_t>(model) >= static_cast<uint32_t>(MODEL_COUNT)) return nullptr;
  const MountFactory previous = modelFactories[model];
  modelFactories[model] = factory;
  return previous;
}

}  // namespace scopemount
