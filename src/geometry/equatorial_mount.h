// The equatorial geometry: axis 0 turns about the Earth's axis (hour angle),
// axis 1 in declination, carried on one side of the pier.
//
// It supplies the nominal matrices for either hemisphere, the side-of-pier
// rule (a target past the meridian is reached through the mirrored axis
// solution, the declination axis beyond the pole), the scores of candidate
// alignment stars, the polar-axis error after an alignment, and the start of
// tracking, which only needs axis 0 at a constant rate.
//
// Axis angles as SkyToAxes gives them: axis 0 in [-pi, pi], axis 1 in
// [-pi/2, 3pi/2), where values above pi/2 are the mirrored solutions.
#pragma once

#include <cstdint>

#include "mount/mount.h"

namespace scopemount {

class EquatorialMount : public virtual Mount {
 public:
  EquatorialMount();

  int32_t SkyToAxes(AnglePair* sky, AnglePair* axes, int applyTerms) override;
  int32_t RateAlignmentStar(const AnglePair& star) override;
  void ResetTransform() override;
  double GetAxisMisalignment() override;
  int32_t RateSecondStar(AnglePair first, AnglePair second, int32_t method) override;
  int32_t RateThirdStar(AnglePair first, AnglePair second, AnglePair third) override;
  int32_t AlignOneStar(AnglePair sky, AnglePair axes) override;
  int32_t AlignTwoStars(StarObservation first, StarObservation second) override;
  int32_t AlignThreeStars(StarObservation first, StarObservation second,
                          StarObservation third) override;
  int32_t StartTracking() override;
  int32_t StartTrackingAfter(uint32_t request) override;
  int32_t StopAxis(uint32_t axis) override;
  int32_t GotoAxes(double angle0, double angle1) override;
};

// Lowest declination-axis angle: mirrored solutions continue past -pi/2
// a full turn higher.
inline constexpr double MIN_DECLINATION_AXIS_ANGLE = -HALF_PI;

}  // namespace scopemount
