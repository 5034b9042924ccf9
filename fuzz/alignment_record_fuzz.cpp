// The saved alignment comes back from the host as 200 bytes it may have
// stored badly: decoding any bytes must never crash, and whatever decodes
// must encode back to the same model and values (bytes 4-7 are kept as
// found and 192-195 are not read, so the checksum may differ).
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "mount/alignment_record.h"

using namespace scopemount;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < ALIGNMENT_RECORD_SIZE + sizeof(int32_t)) return 0;
  int32_t model;
  std::memcpy(&model, data + ALIGNMENT_RECORD_SIZE, sizeof model);
  AlignmentRecordFields fields;
  if (!DecodeAlignmentRecord(data, model, &fields)) return 0;
  uint8_t again[ALIGNMENT_RECORD_SIZE];
  std::memcpy(again, data, ALIGNMENT_RECORD_SIZE);
  EncodeAlignmentRecord(fields, again);
  constexpr size_t VALUES_START = 8, VALUES_END = 192;
  if (std::memcmp(again, data, 4) != 0 ||
      std::memcmp(again + VALUES_START, data + VALUES_START, VALUES_END - VALUES_START) != 0) {
    std::abort();
  }
  return 0;
}
