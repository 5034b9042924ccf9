#include "mount/alignment_record.h"

#include <bit>
#include <cmath>

namespace scopemount {

namespace {

constexpr size_t OFFSET_MODEL_ID = 0;
constexpr size_t OFFSET_SKY_TO_AXES = 8;
constexpr size_t OFFSET_AXES_TO_SKY = 80;
constexpr size_t OFFSET_INDEX_ERROR = 152;
constexpr size_t OFFSET_CONE_ERROR = 160;
constexpr size_t OFFSET_NON_PERP_ERROR = 168;
constexpr size_t OFFSET_MISALIGNMENT = 176;
constexpr size_t OFFSET_QUALITY = 184;
constexpr size_t OFFSET_ALIGNED = 188;
constexpr size_t OFFSET_RESERVED = 192;
constexpr size_t OFFSET_CHECKSUM = 196;

void PutUint32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

uint32_t GetUint32(const uint8_t* p) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(p[i]) << (8 * i);
  return v;
}

void PutDouble(uint8_t* p, double d) {
  const auto bits = std::bit_cast<uint64_t>(d);
  PutUint32(p, static_cast<uint32_t>(bits));
  PutUint32(p + 4, static_cast<uint32_t>(bits >> 32));
}

double GetDouble(const uint8_t* p) {
  const uint64_t bits = GetUint32(p) | (static_cast<uint64_t>(GetUint32(p + 4)) << 32);
  return std::bit_cast<double>(bits);
}

void PutMatrix(uint8_t* p, const Matrix3& m) {
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) PutDouble(p + 8 * (3 * i + j), m.at(i, j));
  }
}

bool GetMatrix(const uint8_t* p, Matrix3* m) {
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      m->at(i, j) = GetDouble(p + 8 * (3 * i + j));
      if (!std::isfinite(m->at(i, j))) return false;
    }
  }
  return true;
}

uint32_t ByteSum(const uint8_t* record) {
  uint32_t sum = 0;
  for (size_t i = 0; i < OFFSET_CHECKSUM; ++i) sum += record[i];
  return sum;
}

}  // namespace

void EncodeAlignmentRecord(const AlignmentRecordFields& fields, uint8_t* record) {
  PutUint32(record + OFFSET_MODEL_ID, static_cast<uint32_t>(fields.modelId));
  PutMatrix(record + OFFSET_SKY_TO_AXES, fields.pointing.skyToAxes);
  PutMatrix(record + OFFSET_AXES_TO_SKY, fields.pointing.axesToSky);
  PutDouble(record + OFFSET_INDEX_ERROR, fields.pointing.indexError);
  PutDouble(record + OFFSET_CONE_ERROR, fields.pointing.coneError);
  PutDouble(record + OFFSET_NON_PERP_ERROR, fields.pointing.nonPerpError);
  PutDouble(record + OFFSET_MISALIGNMENT, fields.misalignment);
  PutUint32(record + OFFSET_QUALITY, fields.alignmentQuality);
  PutUint32(record + OFFSET_ALIGNED, fields.aligned);
  PutUint32(record + OFFSET_RESERVED, 0);
  PutUint32(record + OFFSET_CHECKSUM, ByteSum(record));
}

bool DecodeAlignmentRecord(const uint8_t* record, int32_t expectedModelId,
                           AlignmentRecordFields* fields) {
  if (static_cast<int32_t>(GetUint32(record + OFFSET_MODEL_ID)) != expectedModelId) return false;
  if (ByteSum(record) != GetUint32(record + OFFSET_CHECKSUM)) return false;
  AlignmentRecordFields decoded;
  decoded.modelId = expectedModelId;
  if (!GetMatrix(record + OFFSET_SKY_TO_AXES, &decoded.pointing.skyToAxes) ||
      !GetMatrix(record + OFFSET_AXES_TO_SKY, &decoded.pointing.axesToSky)) {
    return false;
  }
  decoded.pointing.indexError = GetDouble(record + OFFSET_INDEX_ERROR);
  decoded.pointing.coneError = GetDouble(record + OFFSET_CONE_ERROR);
  decoded.pointing.nonPerpError = GetDouble(record + OFFSET_NON_PERP_ERROR);
  decoded.misalignment = GetDouble(record + OFFSET_MISALIGNMENT);
  for (double v : {decoded.pointing.indexError, decoded.pointing.coneError,
                   decoded.pointing.nonPerpError, decoded.misalignment}) {
    if (!std::isfinite(v)) return false;
  }
  decoded.alignmentQuality = GetUint32(record + OFFSET_QUALITY);
  decoded.aligned = GetUint32(record + OFFSET_ALIGNED);
  *fields = decoded;
  return true;
}

}  // namespace scopemount
