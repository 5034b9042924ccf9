#include "celestial/angles.h"

namespace scopemount {

double AngularSeparation(double lon1, double lat1, double lon2, double lat2) {
  double c = std::sin(lat1) * std::sin(lat2) + std::cos(lat1) * std::cos(lat2) * std::cos(lon1 - lon2);
  // Rounding can push the cosine just past +-1, where acos would give NaN.
  if (c > 1.0) c = 1.0;
  if (c < -1.0) c = -1.0;
  return std::acos(c);
}

}  // namespace scopemount
