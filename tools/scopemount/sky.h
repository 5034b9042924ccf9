// Bright stars and where they stand: catalogue places (J2000) brought to the
// date and the site with ERFA. The program needs this; the library does not.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace scopemount::cli {

// A catalogue entry: ICRS (J2000) place at epoch J2000 and its space motion.
struct Star {
  const char* name;
  double rightAscension;  // radians
  double declination;     // radians
  double magnitude;
  double properMotionRa = 0.0;   // mas/yr, along the sky (d(RA)/dt * cos(Dec))
  double properMotionDec = 0.0;  // mas/yr
  double parallax = 0.0;         // mas
  double radialVelocity = 0.0;   // km/s, receding positive
};

struct Site {
  double latitude = 0.0;   // radians, north positive
  double longitude = 0.0;  // radians, east positive
  double elevation = 0.0;  // metres
};

// A moment in UTC as a two-part Julian date, with UT1-UTC where the
// observer knows it (the Earth's rotation angle follows UT1).
struct UtcTime {
  double jd1 = 0.0;
  double jd2 = 0.0;
  double dut1 = 0.0;  // seconds, |dut1| < 0.9
};

// The moment the program plans for: the clock, or a moment given by the user
// that then runs on with the clock (so a slew planned "at" it still tracks).
class SkyClock {
 public:
  SkyClock();
  SkyClock(std::optional<UtcTime> at, double dut1);
  UtcTime Now() const;

 private:
  std::optional<UtcTime> at_;
  UtcTime started_;
  double dut1_ = 0.0;
};

// Where a direction stands for an observer: radians; hour angle in
// [-pi, pi), azimuth in [0, 2 pi) from north toward east; no refraction (the
// mount points at the geometric place).
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
// Nothing for a date that does not exist (2025-02-30, 24:00).
std::optional<UtcTime> UtcFromCalendar(int year, int month, int day, int hour, int minute,
                                       double second);
// A date and time as typed: "YYYY-MM-DD HH:MM[:SS[.sss]]", a 'T' for the
// space, maybe a "Z" after it (UTC). Nothing for text of another shape; the
// calendar is not checked here.
struct CalendarText {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0;
  double second = 0.0;
  bool utc = false;  // ended in "Z"
};
std::optional<CalendarText> ParseCalendarText(const std::string& text);
// ISO 8601 UTC: "2026-03-01T20:00", "2026-03-01 20:00:30.5Z". On failure,
// nothing, and `problem` says why.
std::optional<UtcTime> ParseUtc(const std::string& text, std::string* problem);

// Observed place of a catalogue position (ICRS/J2000, no known motion), and
// of a star with its proper motion, parallax and radial velocity.
std::optional<ObservedPlace> Observe(double rightAscension, double declination, const Site& site,
                                     UtcTime when);
std::optional<ObservedPlace> Observe(const Star& star, const Site& site, UtcTime when);

// The catalogue place (J2000 right ascension, declination) of an observed
// hour angle and declination: the inverse of Observe, proper motion aside.
std::optional<std::pair<double, double>> CatalogueFromObserved(double hourAngle,
                                                               double declination,
                                                               const Site& site, UtcTime when);

// Geometric altitude of an hour angle and declination of date at the site.
double AltitudeOf(double hourAngle, double declination, const Site& site);

// Local apparent sidereal time (radians, [0, 2 pi)) at the site.
double LocalSiderealTime(const Site& site, UtcTime when);
// Hour angle ([-pi, pi)) of a right ascension of date, and right ascension
// of date ([0, 2 pi)) of an hour angle: local sidereal time minus the one
// gives the other.
double HourAngleOf(double rightAscension, const Site& site, UtcTime when);
double RightAscensionOf(double hourAngle, const Site& site, UtcTime when);

}  // namespace scopemount::cli
