// The pointing model: the two frame matrices and the three pointing terms.
//
// Workers convert positions with it while the caller's thread may replace it
// (an alignment, a new site, a restored record). Readers take a consistent
// snapshot without locking (a sequence counter over atomic values); writers,
// all rare, take turns on a mutex.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "celestial/matrix3.h"

namespace scopemount {

struct PointingSnapshot {
  Matrix3 skyToAxes{1.0};
  Matrix3 axesToSky{1.0};
  double indexError = 0.0;
  double coneError = 0.0;
  double nonPerpError = 0.0;
};

// One direction of the model: what a single conversion needs.
struct PointingConversion {
  Matrix3 matrix{1.0};
  double indexError = 0.0;
  double coneError = 0.0;
  double nonPerpError = 0.0;
};

enum class ConversionDirection { SkyToAxes, AxesToSky };

// What the cone and non-perpendicularity terms add to the axis-0 angle at
// an axis-1 angle: conversions to the axes subtract it, conversions from
// them add it. One cosine and one tangent.
double AxisZeroTermOffset(double coneError, double nonPerpError, double axis1);
inline double AxisZeroTermOffset(const PointingConversion& model, double axis1) {
  return AxisZeroTermOffset(model.coneError, model.nonPerpError, axis1);
}

class PointingModel {
 public:
  PointingModel();

  PointingSnapshot Load() const;
  // Reads only one matrix and the terms: the conversions run on every status
  // poll and slew pass, so they copy no more than they use.
  PointingConversion LoadConversion(ConversionDirection direction) const;
  void Store(const PointingSnapshot& snapshot);

  // Applies `change` to the current model as one update.
  template <typename Change>
  void Update(Change&& change) {
    std::lock_guard lock(writer_);
    PointingSnapshot snapshot = Load();
    change(snapshot);
    Publish(snapshot);
  }

 private:
  static constexpr int VALUE_COUNT = 9 + 9 + 3;

  void Publish(const PointingSnapshot& snapshot);
  // Runs `read` until it saw no writer at work; returns when consistent.
  template <typename Read>
  void ReadConsistently(Read&& read) const;

  std::mutex writer_;
  std::atomic<uint32_t> sequence_{0};
  std::atomic<double> values_[VALUE_COUNT];
};

}  // namespace scopemount
