// Readers of the pointing model while alignments replace it: every snapshot
// a worker takes must be one model, never rows of two.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "support/test_mount.h"

namespace scopemount {
namespace {

using testing::Geometry;
using testing::TestMount;

constexpr double DEG = PI / 180.0;

TEST(PointingModelRace, ReadersSeeWholeModelsWhileAlignmentsReplaceThem) {
  TestMount mount(Geometry::AltAz, 7);
  ASSERT_EQ(mount.SetSite(0.6, 0), Ok);
  // Two sets of stars seen through different index errors, the second also
  // turned one degree in azimuth, so the two results differ in every part.
  const double indexes[2] = {0.4 * DEG, -0.3 * DEG};
  const double turns[2] = {0.0, 1.0 * DEG};
  std::vector<StarObservation> stars[2];
  for (int k = 0; k < 2; ++k) {
    mount.pointing.Update([&](PointingSnapshot& model) { model.indexError = indexes[k]; });
    for (AnglePair sky : {AnglePair{-1.2, 0.3}, AnglePair{0.9, 0.1}}) {
      AnglePair axes;
      AnglePair reduced = sky;
      mount.SkyToAxes(&reduced, &axes, 1);
      axes.lon += turns[k];
      stars[k].push_back({sky, axes});
    }
  }
  // The three models a reader may meet: the nominal one (with either
  // index, between the steps of an alignment) and the two results.
  ASSERT_EQ(mount.ResetAlignment(0.0, 0.0), Ok);
  const PointingSnapshot nominal = mount.pointing.Load();
  PointingSnapshot fitted[2];
  for (int k = 0; k < 2; ++k) {
    ASSERT_EQ(mount.AlignTwoStars(stars[k][0], stars[k][1]), Ok);
    fitted[k] = mount.pointing.Load();
  }
  // One matrix with the index it came with, as a conversion carries them.
  const auto matches = [&](const Matrix3& skyToAxes, double index) {
    bool found = skyToAxes == nominal.skyToAxes &&
                 (index == fitted[0].indexError || index == fitted[1].indexError);
    for (const PointingSnapshot& f : fitted) {
      found = found || (skyToAxes == f.skyToAxes && index == f.indexError);
    }
    return found;
  };
  const PointingSnapshot* models[3] = {&nominal, &fitted[0], &fitted[1]};
  const auto isWhole = [&](const PointingSnapshot& s) {
    bool pair = false;
    for (const PointingSnapshot* m : models) {
      pair = pair || (s.skyToAxes == m->skyToAxes && s.axesToSky == m->axesToSky);
    }
    return pair && matches(s.skyToAxes, s.indexError);
  };

  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::atomic<int> reads{0};
  std::atomic<bool> sawFitted[2] = {false, false};
  const auto reader = [&] {
    while (!done) {
      const PointingSnapshot s = mount.pointing.Load();
      const PointingConversion c = mount.pointing.LoadConversion(ConversionDirection::SkyToAxes);
      if (!isWhole(s) || !matches(c.matrix, c.indexError)) ++torn;
      for (int k = 0; k < 2; ++k) {
        if (s.skyToAxes == fitted[k].skyToAxes) sawFitted[k] = true;
      }
      ++reads;
    }
  };
  std::thread readers[2] = {std::thread(reader), std::thread(reader)};
  // Align back and forth while the readers read, until they have met both
  // results and read many times over.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  const auto minimum = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
  int alignments = 0;
  while ((!sawFitted[0] || !sawFitted[1] || std::chrono::steady_clock::now() < minimum) &&
         std::chrono::steady_clock::now() < deadline) {
    const std::vector<StarObservation>& set = stars[alignments % 2];
    ASSERT_EQ(mount.AlignTwoStars(set[0], set[1]), Ok);
    ++alignments;
  }
  done = true;
  for (std::thread& t : readers) t.join();
  EXPECT_TRUE(sawFitted[0] && sawFitted[1]) << "the readers ran during the alignments";
  EXPECT_EQ(torn, 0) << "of " << reads << " reads during " << alignments << " alignments";
}

}  // namespace
}  // namespace scopemount
