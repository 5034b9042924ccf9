// The 200-byte saved alignment that the host stores and hands back.
//
// Layout (little-endian, doubles IEEE 754 binary64):
//   0-3     int32    modelId of the mount that saved it
//   4-7     -        not written (kept as found; covered by the checksum)
//   8-79    9 double skyToAxes matrix, row-major
//   80-151  9 double axesToSky matrix, row-major
//   152-159 double   indexError
//   160-167 double   coneError
//   168-175 double   nonPerpError
//   176-183 double   misalignment
//   184-187 uint32   alignmentQuality
//   188-191 uint32   aligned
//   192-195 uint32   0
//   196-199 uint32   sum of bytes 0-195 as unsigned bytes
#pragma once

#include <cstddef>
#include <cstdint>

#include "mount/pointing_model.h"

namespace scopemount {

inline constexpr size_t ALIGNMENT_RECORD_SIZE = 200;

struct AlignmentRecordFields {
  int32_t modelId = -1;
  PointingSnapshot pointing;
  double misalignment = 0.0;
  uint32_t alignmentQuality = 0;
  uint32_t aligned = 0;
};

// Writes every byte but 4-7, then the checksum.
void EncodeAlignmentRecord(const AlignmentRecordFields& fields, uint8_t* record);

// False when the record belongs to another model, its checksum is wrong or
// it holds a value that is not finite.
bool DecodeAlignmentRecord(const uint8_t* record, int32_t expectedModelId,
                           AlignmentRecordFields* fields);

}  // namespace scopemount
