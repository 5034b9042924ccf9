// The end of a session against an emulated controller or a simulator: a
// disconnect that lets no worker outlive the bench or the test clock.
#pragma once

#include <gtest/gtest.h>

#include <chrono>

#include "interface/current_mount.h"
#include "mount/mount.h"
#include "scopemount.h"
#include "support/fast_clock.h"

namespace scopemount::testing {

// Disconnects, holding the mount across the disconnect and letting it go
// only once no worker holds it: the mount is then freed here, and no worker
// outlives the caller's fast clock or bench. Returns the real time the
// disconnect call itself took.
inline std::chrono::steady_clock::duration DisconnectOnceWorkersEnd() {
  Mount* mount = CurrentMount();
  if (mount != nullptr) mount->Retain();
  const auto start = std::chrono::steady_clock::now();
  ScopeDisconnect();
  const auto took = std::chrono::steady_clock::now() - start;
  if (mount != nullptr) {
    EXPECT_TRUE(WaitUntil([mount] { return mount->References() == 1; }))
        << "a worker still holds the disconnected mount";
    mount->Release();
  }
  return took;
}

}  // namespace scopemount::testing
