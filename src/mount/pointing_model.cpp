#include "mount/pointing_model.h"

#include <cmath>
#include <thread>

namespace scopemount {

double AxisZeroTermOffset(double coneError, double nonPerpError, double axis1) {
  return coneError / std::cos(axis1) + nonPerpError * std::tan(axis1);
}

namespace {

// Order of the values: skyToAxes row-major, axesToSky row-major, then the
// index, cone and non-perpendicularity terms.
constexpr int SKY_TO_AXES_AT = 0;
constexpr int AXES_TO_SKY_AT = 9;
constexpr int TERMS_AT = 18;

template <typename Visit>
void ForEachValue(Visit&& visit, PointingSnapshot& s) {
  int k = 0;
  for (Matrix3* m : {&s.skyToAxes, &s.axesToSky}) {
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) visit(k++, m->at(i, j));
    }
  }
  visit(k++, s.indexError);
  visit(k++, s.coneError);
  visit(k++, s.nonPerpError);
}

}  // namespace

PointingModel::PointingModel() { Publish(PointingSnapshot{}); }

template <typename Read>
void PointingModel::ReadConsistently(Read&& read) const {
  for (;;) {
    const uint32_t before = sequence_.load(std::memory_order_acquire);
    if ((before & 1u) != 0) {
      std::this_thread::yield();  // a writer is halfway; it finishes quickly
      continue;
    }
    read();
    // The values are read with acquire, so this second read of the counter
    // cannot move before them.
    if (sequence_.load(std::memory_order_relaxed) == before) return;
  }
}

PointingSnapshot PointingModel::Load() const {
  PointingSnapshot snapshot;
  ReadConsistently([&] {
    ForEachValue([this](int k, double& v) { v = values_[k].load(std::memory_order_acquire); },
                 snapshot);
  });
  return snapshot;
}

PointingConversion PointingModel::LoadConversion(ConversionDirection direction) const {
  const int first = direction == ConversionDirection::SkyToAxes ? SKY_TO_AXES_AT : AXES_TO_SKY_AT;
  PointingConversion conversion;
  ReadConsistently([&] {
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) {
        conversion.matrix.at(i, j) = values_[first + 3 * i + j].load(std::memory_order_acquire);
      }
    }
    conversion.indexError = values_[TERMS_AT].load(std::memory_order_acquire);
    conversion.coneError = values_[TERMS_AT + 1].load(std::memory_order_acquire);
    conversion.nonPerpError = values_[TERMS_AT + 2].load(std::memory_order_acquire);
  });
  return conversion;
}

void PointingModel::Store(const PointingSnapshot& snapshot) {
  std::lock_guard lock(writer_);
  Publish(snapshot);
}

void PointingModel::Publish(const PointingSnapshot& snapshot) {
  const uint32_t sequence = sequence_.load(std::memory_order_relaxed);
  sequence_.store(sequence + 1, std::memory_order_relaxed);
  // Release stores keep the odd counter ahead of every value a reader sees.
  PointingSnapshot copy = snapshot;
  ForEachValue([this](int k, double& v) { values_[k].store(v, std::memory_order_release); }, copy);
  sequence_.store(sequence + 2, std::memory_order_release);
}

}  // namespace scopemount
