#include "protocols/compact/compact_altaz_mounts.h"

#include "protocols/compact/compact_protocol.h"

namespace scopemount {

CompactAltAzMountSmall::CompactAltAzMountSmall() {
  modelId = MODEL;
  AltAzMount::ResetTransform();
  SetGearing(compact::SMALL_COUNTS_PER_REVOLUTION);
}

CompactAltAzMountLarge::CompactAltAzMountLarge() {
  modelId = MODEL;
  AltAzMount::ResetTransform();
  SetGearing(compact::LARGE_COUNTS_PER_REVOLUTION);
}

}  // namespace scopemount
