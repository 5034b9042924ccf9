// Bright stars and where they stand: catalogue places (J2000) brought to the
// date and the site with ERFA. The program needs this; the library does not.
#pragma once

#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace scopemount::cli {

struct Star {
  const char* name;
  double rightAscension;  // J2000, radians
  double declination;     // J2000, radians
  double magnitude;
};

struct Site {
  double latitude = 0.0;   // radians, north positive
  double longitude = 0.0;  // radians, east positive
  double elevation = 0.0;  // metres
};

// A moment in UTC as a two-part Julian date.
struct UtcTime {
  double jd1 = 0.0;
  double jd2 = 0.0;
};

// Where a direction stands for an observer: radians; azimuth from north
// toward east; no refraction (the mount points at the geometric place).
struct ObservedPlace {
  double hourAngle = 0.0;
  double declination = 0.0;
  double azimuth = 0.0;
  double altitude = 0.0;
  double rightAscension = 0.0;  // of date (local sidereal time minus hour angle)
};

std::span<const Star> BrightStars();
// Case and blanks do not matter: "betelgeuse", "Rigil Kentaurus".
const Star* FindStar(std::string_view name);

UtcTime UtcNow();
UtcTime UtcFromCalendar(int year, int month, int day, int hour, int minute, double second);

// Observed place of a catalogue position (J2000, with proper motion in
// radians per year: d(RA)/dt and d(Dec)/dt) at a UTC moment.
std::optional<ObservedPlace> Observe(double rightAscension, double declination,
                                     double properMotionRa, double properMotionDec,
                                     const Site& site, UtcTime when);
std::optional<ObservedPlace> Observe(const Star& star, const Site& site, UtcTime when);

// The catalogue place (J2000 right ascension, declination) of an observed
// hour angle and declination: the inverse of Observe, proper motion aside.
std::optional<std::pair<double, double>> CatalogueFromObserved(double hourAngle,
                                                               double declination,
                                                               const Site& site, UtcTime when);

// Local apparent sidereal time (radians) at the site.
double LocalSiderealTime(const Site& site, UtcTime when);

}  // namespace scopemount::cli
