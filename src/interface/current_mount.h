// The one current mount and the factory table that creates it.
#pragma once

#include <cstdint>
#include <memory>

#include "mount/mount.h"

namespace scopemount {

// Creates the driver object of a model class (null if it cannot be made).
using MountFactory = std::unique_ptr<Mount> (*)();

// The connected mount, or null.
Mount* CurrentMount();

// Connects `model` at a site: the same model connected re-applies the site
// (0), another gives AlreadyConnected, a model outside 0..11
// InvalidMountId; a failed open leaves nothing connected and returns its code.
int32_t ConnectMount(int32_t model, double latitude, double elevation);
// Destroys the current mount, if any.
void DisconnectMount();

// Replaces the factory of a model number and returns the one it replaced;
// lets tests put their own mounts behind the exported functions.
MountFactory ReplaceModelFactory(int32_t model, MountFactory factory);

}  // namespace scopemount
