#include "interface/current_mount.h"

#include <new>

#include "interface/messages.h"

namespace scopemount {

namespace {

// Model numbers map onto eight driver classes; classes not in this build
// have no factory yet, and connecting them reports NotImplemented.
MountFactory modelFactories[MODEL_COUNT] = {};

std::unique_ptr<Mount> currentMount;

}  // namespace

Mount* CurrentMount() { return currentMount.get(); }

int32_t ConnectMount(int32_t model, double latitude, double elevation) {
  if (currentMount) {
    if (currentMount->modelId != model) return AlreadyConnected;
    currentMount->SetSite(latitude, elevation);
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
  currentMount = std::move(mount);
  // A site out of range is not reported here; SetSite keeps what it took.
  currentMount->SetSite(latitude, elevation);
  const int32_t opened = currentMount->OpenMount();
  if (opened != Ok) {
    DisconnectMount();
    return opened;
  }
  return Ok;
}

void DisconnectMount() { currentMount.reset(); }

MountFactory ReplaceModelFactory(int32_t model, MountFactory factory) {
  if (static_cast<uint32_t>(model) >= static_cast<uint32_t>(MODEL_COUNT)) return nullptr;
  const MountFactory previous = modelFactories[model];
  modelFactories[model] = factory;
  return previous;
}

}  // namespace scopemount
