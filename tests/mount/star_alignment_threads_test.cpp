// Readers of the pointing model while alignments replace it: every snapshot
// a worker takes must be one model, never rows of two.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "support/angles.h"
#include "support/test_mount.h"

namespace scopemount {
namespace {

using namespace testing;

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
      StarObservation star = Observe(mount, sky);
      star.axes.lon += turns[k];
      stars[k].push_back(star);
    }
  }
  ASSERT_EQ(mount.ResetAlignment(0.0, 0.0), Ok);
  const PointingSnapshot nominal = mount.pointing.Load();
  PointingSnapshot fitted[2];
  for (int k = 0; k < 2; ++k) {
    ASSERT_EQ(mount.AlignTwoStars(stars[k][0], stars[k][1]), Ok);
    fitted[k] = mount.pointing.Load();
  }
  // The models a reader may meet: either result, or the nominal matrices
  // with either index (between the steps of an alignment).
  std::vector<PointingSnapshot> wholes(fitted, fitted + 2);
  for (const PointingSnapshot& f : fitted) {
    wholes.push_back(nominal);
    wholes.back().indexError = f.indexError;
  }
  // A matrix with the index it came with, as a conversion carries them, and
  // with its inverse unless none is given.
  const auto isWhole = [&](const Matrix3& skyToAxes, const Matrix3* axesToSky, double index) {
    for (const PointingSnapshot& w : wholes) {
      if (skyToAxes == w.skyToAxes && index == w.indexError &&
          (axesToSky == nullptr || *axesToSky == w.axesToSky)) {
        return true;
      }
    }
    return false;
  };

  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::atomic<int> reads{0};
  std::atomic<bool> sawFitted[2] = {false, false};
  const auto reader = [&] {
    while (!done) {
      const PointingSnapshot s = mount.pointing.Load();
      const PointingConversion c = mount.pointing.LoadConversion(ConversionDirection::SkyToAxes);
      if (!isWhole(s.skyToAxes, &s.axesToSky, s.indexError) ||
          !isWhole(c.matrix, nullptr, c.indexError)) {
        ++torn;
      }
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
