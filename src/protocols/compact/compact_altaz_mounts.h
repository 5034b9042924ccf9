// Models 8 to 11: the compact Alt/Az mounts, in two sizes that differ only
// in their gearing. Models 10 and 11 are the same boards under another name
// and report model 8 and 9.
#pragma once

#include <cstdint>

#include "geometry/altaz_mount.h"
#include "protocols/compact/compact_mount.h"

namespace scopemount {

class CompactAltAzMountSmall final : public CompactMount, public AltAzMount {
 public:
  static constexpr int32_t MODEL = 8;
  CompactAltAzMountSmall();
};

class CompactAltAzMountLarge final : public CompactMount, public AltAzMount {
 public:
  static constexpr int32_t MODEL = 9;
  CompactAltAzMountLarge();
};

}  // namespace scopemount
