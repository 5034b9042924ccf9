#include "sky.h"

#include <erfa.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <string>

#include "text.h"

namespace scopemount::cli {

namespace {

constexpr double PI = 3.141592653589793;

constexpr double Hms(double h, double m, double s) { return (h + m / 60.0 + s / 3600.0) * PI / 12.0; }
constexpr double Dms(int sign, double d, double m, double s) {
  return sign * (d + m / 60.0 + s / 3600.0) * PI / 180.0;
}

// The brightest stars, brightest first. Sources: places (ICRS, epoch J2000)
// and visual magnitudes as given by the SIMBAD database; proper motions and
// parallaxes from Hipparcos, the new reduction (van Leeuwen 2007), Rigil
// Kentaurus from Kervella et al. 2016; radial velocities as adopted by SIMBAD.
// Checked against the Hipparcos catalogue of 1997 (all but Sargas): places
// agree within 0.15", motions within 15 mas/yr (binaries Castor and Mimosa
// the most).
//   name, RA, Dec, magnitude, proper motion in RA*cos(Dec) and in Dec (mas/yr),
//   parallax (mas), radial velocity (km/s)
constexpr Star STARS[] = {
    {"Sirius", Hms(6, 45, 8.917), Dms(-1, 16, 42, 58.02), -1.46, -546.01, -1223.07, 379.21, -5.5},
    {"Canopus", Hms(6, 23, 57.110), Dms(-1, 52, 41, 44.38), -0.74, 19.93, 23.24, 10.55, 20.3},
    {"Arcturus", Hms(14, 15, 39.672), Dms(+1, 19, 10, 56.67), -0.05, -1093.39, -1999.40, 88.83, -5.19},
    {"Rigil Kentaurus", Hms(14, 39, 36.494), Dms(-1, 60, 50, 2.37), -0.01, -3679.25, 473.67, 747.17, -21.4},
    {"Vega", Hms(18, 36, 56.336), Dms(+1, 38, 47, 1.28), 0.03, 200.94, 286.23, 130.23, -13.9},
    {"Capella", Hms(5, 16, 41.359), Dms(+1, 45, 59, 52.77), 0.08, 75.25, -426.89, 76.20, 29.19},
    {"Rigel", Hms(5, 14, 32.272), Dms(-1, 8, 12, 5.90), 0.13, 1.31, 0.50, 3.78, 17.8},
    {"Procyon", Hms(7, 39, 18.118), Dms(+1, 5, 13, 29.96), 0.34, -714.59, -1036.80, 284.56, -3.2},
    {"Achernar", Hms(1, 37, 42.845), Dms(-1, 57, 14, 12.31), 0.46, 87.00, -38.24, 23.39, 16.0},
    {"Betelgeuse", Hms(5, 55, 10.305), Dms(+1, 7, 24, 25.43), 0.50, 27.54, 11.30, 6.55, 21.91},
    {"Hadar", Hms(14, 3, 49.405), Dms(-1, 60, 22, 22.93), 0.61, -33.27, -23.16, 8.32, 5.9},
    {"Altair", Hms(19, 50, 46.999), Dms(+1, 8, 52, 5.96), 0.77, 536.23, 385.29, 194.95, -26.1},
    {"Acrux", Hms(12, 26, 35.896), Dms(-1, 63, 5, 56.73), 0.77, -35.83, -14.86, 10.13, -11.2},
    {"Aldebaran", Hms(4, 35, 55.239), Dms(+1, 16, 30, 33.49), 0.85, 63.45, -188.94, 48.94, 54.26},
    {"Antares", Hms(16, 29, 24.459), Dms(-1, 26, 25, 55.21), 0.96, -12.11, -23.30, 5.89, -3.4},
    {"Spica", Hms(13, 25, 11.579), Dms(-1, 11, 9, 40.75), 0.97, -42.35, -30.67, 13.06, 1.0},
    {"Pollux", Hms(7, 45, 18.950), Dms(+1, 28, 1, 34.32), 1.14, -626.55, -45.80, 96.54, 3.23},
    {"Fomalhaut", Hms(22, 57, 39.046), Dms(-1, 29, 37, 20.05), 1.16, 328.95, -164.67, 129.81, 6.5},
    {"Deneb", Hms(20, 41, 25.915), Dms(+1, 45, 16, 49.22), 1.25, 2.01, 1.85, 2.31, -4.5},
    {"Mimosa", Hms(12, 47, 43.269), Dms(-1, 59, 41, 19.55), 1.25, -42.97, -16.18, 11.71, 15.6},
    {"Regulus", Hms(10, 8, 22.311), Dms(+1, 11, 58, 1.95), 1.35, -248.73, 5.59, 41.13, 5.9},
    {"Adhara", Hms(6, 58, 37.548), Dms(-1, 28, 58, 19.51), 1.50, 3.24, 1.33, 8.05, 27.3},
    {"Castor", Hms(7, 34, 35.863), Dms(+1, 31, 53, 17.82), 1.58, -191.45, -145.19, 64.12, 5.4},
    {"Shaula", Hms(17, 33, 36.520), Dms(-1, 37, 6, 13.76), 1.62, -8.53, -30.80, 5.71, -3.0},
    {"Gacrux", Hms(12, 31, 9.959), Dms(-1, 57, 6, 47.57), 1.63, 27.94, -264.33, 36.83, 21.0},
    {"Bellatrix", Hms(5, 25, 7.863), Dms(+1, 6, 20, 58.93), 1.64, -8.11, -12.88, 12.92, 18.2},
    {"Elnath", Hms(5, 26, 17.513), Dms(+1, 28, 36, 26.83), 1.65, 22.76, -173.58, 24.36, 9.2},
    {"Miaplacidus", Hms(9, 13, 11.977), Dms(-1, 69, 43, 1.95), 1.67, -156.47, 108.95, 28.82, -5.0},
    {"Alnilam", Hms(5, 36, 12.813), Dms(-1, 1, 12, 6.91), 1.69, 1.44, -0.78, 1.65, 25.9},
    {"Alnair", Hms(22, 8, 13.985), Dms(-1, 46, 57, 39.51), 1.74, 126.69, -147.47, 32.29, 10.9},
    {"Alnitak", Hms(5, 40, 45.527), Dms(-1, 1, 56, 33.26), 1.77, 3.19, 2.03, 4.43, 18.5},
    {"Alioth", Hms(12, 54, 1.750), Dms(+1, 55, 57, 35.36), 1.77, 111.91, -8.24, 39.51, -9.3},
    {"Dubhe", Hms(11, 3, 43.672), Dms(+1, 61, 45, 3.72), 1.79, -134.11, -34.70, 26.54, -9.4},
    {"Mirfak", Hms(3, 24, 19.370), Dms(+1, 49, 51, 40.25), 1.79, 23.75, -26.23, 6.44, -2.04},
    {"Wezen", Hms(7, 8, 23.485), Dms(-1, 26, 23, 35.52), 1.84, -3.12, 3.31, 1.82, 34.3},
    {"Kaus Australis", Hms(18, 24, 10.318), Dms(-1, 34, 23, 4.62), 1.85, -39.42, -124.20, 22.76, -15.0},
    {"Avior", Hms(8, 22, 30.836), Dms(-1, 59, 30, 34.14), 1.86, -25.52, 22.72, 5.39, 11.6},
    {"Alkaid", Hms(13, 47, 32.438), Dms(+1, 49, 18, 47.76), 1.86, -121.17, -14.91, 31.38, -13.4},
    {"Sargas", Hms(17, 37, 19.129), Dms(-1, 42, 59, 52.18), 1.87, 6.06, -0.95, 10.86, 1.4},
    {"Menkalinan", Hms(5, 59, 31.723), Dms(+1, 44, 56, 50.76), 1.90, -56.44, -0.95, 40.21, -18.2},
    {"Atria", Hms(16, 48, 39.895), Dms(-1, 69, 1, 39.76), 1.91, 17.99, -31.58, 8.35, -3.0},
    {"Alhena", Hms(6, 37, 42.711), Dms(+1, 16, 23, 57.41), 1.92, -2.04, -66.92, 29.84, -12.5},
    {"Peacock", Hms(20, 25, 38.858), Dms(-1, 56, 44, 6.32), 1.94, 6.90, -86.02, 18.24, 2.0},
    {"Polaris", Hms(2, 31, 49.095), Dms(+1, 89, 15, 50.79), 1.98, 44.48, -11.85, 7.54, -17.4},
    {"Mirzam", Hms(6, 22, 41.985), Dms(-1, 17, 57, 21.31), 1.98, -3.23, -0.78, 6.62, 33.7},
    {"Alphard", Hms(9, 27, 35.243), Dms(-1, 8, 39, 30.96), 1.99, -15.23, 34.37, 18.09, -4.3},
    {"Hamal", Hms(2, 7, 10.406), Dms(+1, 23, 27, 44.70), 2.00, 188.55, -148.08, 49.56, -14.2},
    {"Algieba", Hms(10, 19, 58.355), Dms(+1, 19, 50, 29.36), 2.01, 310.77, -152.88, 25.96, -36.9},
    {"Diphda", Hms(0, 43, 35.371), Dms(-1, 17, 59, 11.78), 2.02, 232.55, 31.99, 33.86, 13.3},
    {"Nunki", Hms(18, 55, 15.926), Dms(-1, 26, 17, 48.20), 2.05, 15.14, -53.43, 14.32, -11.2},
    {"Menkent", Hms(14, 6, 40.948), Dms(-1, 36, 22, 11.84), 2.06, -519.29, -517.87, 55.45, 1.3},
    {"Alpheratz", Hms(0, 8, 23.260), Dms(+1, 29, 5, 25.55), 2.06, 137.46, -163.44, 33.62, -10.6},
    {"Mirach", Hms(1, 9, 43.924), Dms(+1, 35, 37, 14.01), 2.07, 175.90, -112.20, 16.52, 3.06},
    {"Rasalhague", Hms(17, 34, 56.069), Dms(+1, 12, 33, 36.13), 2.07, 108.07, -221.57, 67.13, 12.6},
    {"Kochab", Hms(14, 50, 42.326), Dms(+1, 74, 9, 19.81), 2.08, -32.61, 11.42, 24.91, 16.96},
    {"Saiph", Hms(5, 47, 45.389), Dms(-1, 9, 40, 10.58), 2.09, 1.46, -1.28, 5.04, 20.5},
    {"Algol", Hms(3, 8, 10.132), Dms(+1, 40, 57, 20.33), 2.12, 2.99, -1.66, 36.27, 4.0},
    {"Denebola", Hms(11, 49, 3.578), Dms(+1, 14, 34, 19.41), 2.14, -497.68, -114.67, 90.91, -0.2},
};

std::string Folded(std::string_view text) {
  std::string folded;
  for (char c : text) {
    if (!std::isspace(static_cast<unsigned char>(c)) && c != '-' && c != '_') {
      folded += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
  }
  return folded;
}

}  // namespace

std::span<const Star> BrightStars() { return STARS; }

const Star* FindStar(std::string_view name) {
  const std::string wanted = Folded(name);
  if (wanted.empty()) return nullptr;
  for (const Star& star : STARS) {
    if (Folded(star.name) == wanted) return &star;
  }
  return nullptr;
}

UtcTime UtcNow() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm tm{};
  gmtime_r(&now.tv_sec, &tm);
  return *UtcFromCalendar(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                          tm.tm_sec + now.tv_nsec * 1e-9);
}

std::optional<UtcTime> UtcFromCalendar(int year, int month, int day, int hour, int minute,
                                       double second) {
  UtcTime t;
  // eraDtf2d refuses days beyond the month and times beyond the day; a
  // "dubious year" warning (beyond the known leap seconds) is fine here.
  if (eraDtf2d("UTC", year, month, day, hour, minute, second, &t.jd1, &t.jd2) < 0) {
    return std::nullopt;
  }
  return t;
}

std::optional<CalendarText> ParseCalendarText(const std::string& text) {
  CalendarText c;
  char separator = 0;
  int consumed = 0;
  const char* p = text.c_str();
  if (std::sscanf(p, "%4d-%2d-%2d%c%2d:%2d%n", &c.year, &c.month, &c.day, &separator, &c.hour,
                  &c.minute, &consumed) != 6 ||
      (separator != 'T' && separator != ' ')) {
    return std::nullopt;
  }
  p += consumed;
  if (*p == ':') {
    int more = 0;
    if (std::sscanf(p, ":%lf%n", &c.second, &more) != 1) return std::nullopt;
    p += more;
  }
  c.utc = *p == 'Z';
  if (c.utc) ++p;
  if (*p != '\0') return std::nullopt;
  return c;
}

std::optional<UtcTime> ParseUtc(const std::string& text, std::string* problem) {
  const std::optional<CalendarText> c = ParseCalendarText(text);
  if (!c) {
    *problem = "'" + text + _("' is not a UTC time like 2026-03-01T20:00:00Z");
    return std::nullopt;
  }
  const std::optional<UtcTime> t =
      UtcFromCalendar(c->year, c->month, c->day, c->hour, c->minute, c->second);
  if (!t) *problem = "'" + text + _("' does not exist");
  return t;
}

SkyClock::SkyClock() : SkyClock(std::nullopt, 0.0) {}

SkyClock::SkyClock(std::optional<UtcTime> at, double dut1)
    : at_(at), started_(UtcNow()), dut1_(dut1) {}

UtcTime SkyClock::Now() const {
  UtcTime now = UtcNow();
  if (at_) {
    const double elapsedDays = (now.jd1 - started_.jd1) + (now.jd2 - started_.jd2);
    now = UtcTime{at_->jd1, at_->jd2 + elapsedDays};
  }
  now.dut1 = dut1_;
  return now;
}

namespace {

// Pressure 0 switches refraction off: the geometric place is what a mount
// model converts. Polar motion is below the mount's accuracy.
std::optional<ObservedPlace> ObserveWithMotion(double rightAscension, double declination,
                                               double raRate, double decRate, double parallax,
                                               double radialVelocity, const Site& site,
                                               UtcTime when) {
  double azimuth = 0, zenithDistance = 0, hourAngle = 0, dec = 0, ra = 0, eo = 0;
  const int status = eraAtco13(rightAscension, declination, raRate, decRate, parallax,
                               radialVelocity, when.jd1, when.jd2, when.dut1, site.longitude,
                               site.latitude, site.elevation, 0.0, 0.0, 0.0, 0.0, 0.0, 0.55,
                               &azimuth, &zenithDistance, &hourAngle, &dec, &ra, &eo);
  if (status < 0) return std::nullopt;
  ObservedPlace place;
  place.hourAngle = eraAnpm(hourAngle);
  place.declination = dec;
  place.azimuth = eraAnp(azimuth);
  place.altitude = PI / 2 - zenithDistance;
  place.rightAscension = eraAnp(ra - eo);
  return place;
}

}  // namespace

std::optional<ObservedPlace> Observe(double rightAscension, double declination, const Site& site,
                                     UtcTime when) {
  return ObserveWithMotion(rightAscension, declination, 0.0, 0.0, 0.0, 0.0, site, when);
}

std::optional<ObservedPlace> Observe(const Star& star, const Site& site, UtcTime when) {
  constexpr double RADIANS_PER_MAS = PI / (180.0 * 3600.0 * 1000.0);
  // ERFA wants the rate of RA itself, and the parallax in arcseconds.
  const double raRate = star.properMotionRa * RADIANS_PER_MAS / std::cos(star.declination);
  return ObserveWithMotion(star.rightAscension, star.declination, raRate,
                           star.properMotionDec * RADIANS_PER_MAS, star.parallax / 1000.0,
                           star.radialVelocity, site, when);
}

std::optional<std::pair<double, double>> CatalogueFromObserved(double hourAngle,
                                                               double declination,
                                                               const Site& site, UtcTime when) {
  double rightAscension = 0, catalogueDeclination = 0;
  // The same site, time and (absent) refraction as Observe, run backwards.
  const int status = eraAtoc13("H", hourAngle, declination, when.jd1, when.jd2, when.dut1,
                               site.longitude, site.latitude, site.elevation, 0.0, 0.0, 0.0, 0.0,
                               0.0, 0.55, &rightAscension, &catalogueDeclination);
  if (status < 0) return std::nullopt;
  return std::pair{eraAnp(rightAscension), catalogueDeclination};
}

double AltitudeOf(double hourAngle, double declination, const Site& site) {
  return std::asin(std::sin(site.latitude) * std::sin(declination) +
                   std::cos(site.latitude) * std::cos(declination) * std::cos(hourAngle));
}

double LocalSiderealTime(const Site& site, UtcTime when) {
  double tai1 = 0, tai2 = 0, tt1 = 0, tt2 = 0, ut11 = 0, ut12 = 0;
  eraUtctai(when.jd1, when.jd2, &tai1, &tai2);
  eraTaitt(tai1, tai2, &tt1, &tt2);
  if (eraUtcut1(when.jd1, when.jd2, when.dut1, &ut11, &ut12) < 0) {
    ut11 = when.jd1;
    ut12 = when.jd2;
  }
  return eraAnp(eraGst06a(ut11, ut12, tt1, tt2) + site.longitude);
}

double HourAngleOf(double rightAscension, const Site& site, UtcTime when) {
  return eraAnpm(LocalSiderealTime(site, when) - rightAscension);
}

double RightAscensionOf(double hourAngle, const Site& site, UtcTime when) {
  return eraAnp(LocalSiderealTime(site, when) - hourAngle);
}

}  // namespace scopemount::cli
