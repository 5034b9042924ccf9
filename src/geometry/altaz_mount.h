// The Alt/Az geometry: axis 0 turns in azimuth about the local vertical,
// axis 1 in altitude.
//
// It supplies what depends on that geometry and nothing of the hardware:
// the nominal matrices for the latitude, the scores of candidate alignment
// stars, the tilt of the azimuth axis after an alignment, and continuous
// tracking. Tracking needs both axes at changing rates, so it runs in a
// long-lived loop owned here; every operation that moves the axes halts the
// loop first, so two threads never command the axes at once.
#pragma once

#include <cstdint>

#include "mount/mount.h"
#include "mount/tracking_workers.h"

namespace scopemount {

class AltAzMount : public virtual Mount {
 public:
  AltAzMount();
  // Halts the tracking loop before the Mount part goes.
  ~AltAzMount() override;

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
  int32_t StopTracking() override;
  int32_t MoveAxis(uint32_t axis, double rate) override;
  int32_t StopAxis(uint32_t axis) override;
  int32_t GotoEquatorial(AnglePair sky) override;
  int32_t GotoHorizontal(double azimuth, double altitude) override;
  int32_t GotoAxes(double angle0, double angle1) override;

  // Clears the tracking bit, wakes the loop and waits at most 3000 ms for it
  // to end.
  void HaltTracking();
  // True while a tracking loop runs.
  bool IsTrackingLoopRunning() const { return tracking_.IsRunning(); }

 private:
  void HaltTrackingIfRunning();

  AltAzTracking tracking_{*this};
};

}  // namespace scopemount
