#include "sky.h"

#include <erfa.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <string>

namespace scopemount::cli {

namespace {

constexpr double PI = 3.141592653589793;

constexpr double Hms(double h, double m, double s) { return (h + m / 60.0 + s / 3600.0) * PI / 12.0; }
constexpr double Dms(int sign, double d, double m, double s) {
  return sign * (d + m / 60.0 + s / 3600.0) * PI / 180.0;
}

// The brightest stars, J2000 places.
constexpr Star STARS[] = {
    {"Sirius", Hms(6, 45, 8.917), Dms(-1, 16, 42, 58.02), -1.46},
    {"Canopus", Hms(6, 23, 57.110), Dms(-1, 52, 41, 44.38), -0.74},
    {"Arcturus", Hms(14, 15, 39.672), Dms(+1, 19, 10, 56.67), -0.05},
    {"Rigil Kentaurus", Hms(14, 39, 36.494), Dms(-1, 60, 50, 2.37), -0.01},
    {"Vega", Hms(18, 36, 56.336), Dms(+1, 38, 47, 1.28), 0.03},
    {"Capella", Hms(5, 16, 41.359), Dms(+1, 45, 59, 52.77), 0.08},
    {"Rigel", Hms(5, 14, 32.272), Dms(-1, 8, 12, 5.90), 0.13},
    {"Procyon", Hms(7, 39, 18.118), Dms(+1, 5, 13, 29.96), 0.34},
    {"Achernar", Hms(1, 37, 42.845), Dms(-1, 57, 14, 12.31), 0.46},
    {"Betelgeuse", Hms(5, 55, 10.305), Dms(+1, 7, 24, 25.43), 0.50},
    {"Hadar", Hms(14, 3, 49.405), Dms(-1, 60, 22, 22.93), 0.61},
    {"Altair", Hms(19, 50, 46.999), Dms(+1, 8, 52, 5.96), 0.77},
    {"Acrux", Hms(12, 26, 35.896), Dms(-1, 63, 5, 56.73), 0.77},
    {"Aldebaran", Hms(4, 35, 55.239), Dms(+1, 16, 30, 33.49), 0.85},
    {"Antares", Hms(16, 29, 24.459), Dms(-1, 26, 25, 55.21), 0.96},
    {"Spica", Hms(13, 25, 11.579), Dms(-1, 11, 9, 40.75), 0.97},
    {"Pollux", Hms(7, 45, 18.950), Dms(+1, 28, 1, 34.32), 1.14},
    {"Fomalhaut", Hms(22, 57, 39.046), Dms(-1, 29, 37, 20.05), 1.16},
    {"Deneb", Hms(20, 41, 25.915), Dms(+1, 45, 16, 49.22), 1.25},
    {"Mimosa", Hms(12, 47, 43.269), Dms(-1, 59, 41, 19.55), 1.25},
    {"Regulus", Hms(10, 8, 22.311), Dms(+1, 11, 58, 1.95), 1.35},
    {"Adhara", Hms(6, 58, 37.548), Dms(-1, 28, 58, 19.51), 1.50},
    {"Castor", Hms(7, 34, 35.863), Dms(+1, 31, 53, 17.82), 1.58},
    {"Shaula", Hms(17, 33, 36.520), Dms(-1, 37, 6, 13.76), 1.62},
    {"Gacrux", Hms(12, 31, 9.959), Dms(-1, 57, 6, 47.57), 1.63},
    {"Bellatrix", Hms(5, 25, 7.863), Dms(+1, 6, 20, 58.93), 1.64},
    {"Elnath", Hms(5, 26, 17.513), Dms(+1, 28, 36, 26.83), 1.65},
    {"Miaplacidus", Hms(9, 13, 11.977), Dms(-1, 69, 43, 1.95), 1.67},
    {"Alnilam", Hms(5, 36, 12.813), Dms(-1, 1, 12, 6.91), 1.69},
    {"Alnair", Hms(22, 8, 13.985), Dms(-1, 46, 57, 39.51), 1.74},
    {"Alnitak", Hms(5, 40, 45.527), Dms(-1, 1, 56, 33.26), 1.77},
    {"Alioth", Hms(12, 54, 1.750), Dms(+1, 55, 57, 35.36), 1.77},
    {"Dubhe", Hms(11, 3, 43.672), Dms(+1, 61, 45, 3.72), 1.79},
    {"Mirfak", Hms(3, 24, 19.370), Dms(+1, 49, 51, 40.25), 1.79},
    {"Wezen", Hms(7, 8, 23.485), Dms(-1, 26, 23, 35.52), 1.84},
    {"Kaus Australis", Hms(18, 24, 10.318), Dms(-1, 34, 23, 4.62), 1.85},
    {"Avior", Hms(8, 22, 30.836), Dms(-1, 59, 30, 34.14), 1.86},
    {"Alkaid", Hms(13, 47, 32.438), Dms(+1, 49, 18, 47.76), 1.86},
    {"Sargas", Hms(17, 37, 19.129), Dms(-1, 42, 59, 52.18), 1.87},
    {"Menkalinan", Hms(5, 59, 31.723), Dms(+1, 44, 56, 50.76), 1.90},
    {"Atria", Hms(16, 48, 39.895), Dms(-1, 69, 1, 39.76), 1.91},
    {"Alhena", Hms(6, 37, 42.711), Dms(+1, 16, 23, 57.41), 1.92},
    {"Peacock", Hms(20, 25, 38.858), Dms(-1, 56, 44, 6.32), 1.94},
    {"Polaris", Hms(2, 31, 49.095), Dms(+1, 89, 15, 50.79), 1.98},
    {"Mirzam", Hms(6, 22, 41.985), Dms(-1, 17, 57, 21.31), 1.98},
    {"Alphard", Hms(9, 27, 35.243), Dms(-1, 8, 39, 30.96), 1.99},
    {"Hamal", Hms(2, 7, 10.406), Dms(+1, 23, 27, 44.70), 2.00},
    {"Algieba", Hms(10, 19, 58.355), Dms(+1, 19, 50, 29.36), 2.01},
    {"Diphda", Hms(0, 43, 35.371), Dms(-1, 17, 59, 11.78), 2.02},
    {"Nunki", Hms(18, 55, 15.926), Dms(-1, 26, 17, 48.20), 2.05},
    {"Menkent", Hms(14, 6, 40.948), Dms(-1, 36, 22, 11.84), 2.06},
    {"Alpheratz", Hms(0, 8, 23.260), Dms(+1, 29, 5, 25.55), 2.06},
    {"Mirach", Hms(1, 9, 43.924), Dms(+1, 35, 37, 14.01), 2.07},
    {"Rasalhague", Hms(17, 34, 56.069), Dms(+1, 12, 33, 36.13), 2.07},
    {"Kochab", Hms(14, 50, 42.326), Dms(+1, 74, 9, 19.81), 2.08},
    {"Saiph", Hms(5, 47, 45.389), Dms(-1, 9, 40, 10.58), 2.09},
    {"Algol", Hms(3, 8, 10.132), Dms(+1, 40, 57, 20.33), 2.12},
    {"Denebola", Hms(11, 49, 3.578), Dms(+1, 14, 34, 19.41), 2.14},
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
  return UtcFromCalendar(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                         tm.tm_sec + now.tv_nsec * 1e-9);
}

UtcTime UtcFromCalendar(int year, int month, int day, int hour, int minute, double second) {
  UtcTime t;
  // A "dubious year" warning (beyond the known leap seconds) is fine here.
  if (eraDtf2d("UTC", year, month, day, hour, minute, second, &t.jd1, &t.jd2) < 0) return {};
  return t;
}

std::optional<ObservedPlace> Observe(double rightAscension, double declination,
                                     double properMotionRa, double properMotionDec,
                                     const Site& site, UtcTime when) {
  double azimuth = 0, zenithDistance = 0, hourAngle = 0, dec = 0, ra = 0, eo = 0;
  // Pressure 0 switches refraction off: the geometric place is what a mount
  // model converts; UT1-UTC and polar motion are below the mount's accuracy.
  const int status = eraAtco13(rightAscension, declination, properMotionRa, properMotionDec, 0.0,
                               0.0, when.jd1, when.jd2, 0.0, site.longitude, site.latitude,
                               site.elevation, 0.0, 0.0, 0.0, 0.0, 0.0, 0.55, &azimuth,
                               &zenithDistance, &hourAngle, &dec, &ra, &eo);
  if (status < 0) return std::nullopt;
  ObservedPlace place;
  place.hourAngle = eraAnpm(hourAngle);
  place.declination = dec;
  place.azimuth = eraAnpm(azimuth);
  place.altitude = PI / 2 - zenithDistance;
  place.rightAscension = eraAnp(ra - eo);
  return place;
}

std::optional<ObservedPlace> Observe(const Star& star, const Site& site, UtcTime when) {
  return Observe(star.rightAscension, star.declination, 0.0, 0.0, site, when);
}

std::optional<std::pair<double, double>> CatalogueFromObserved(double hourAngle,
                                                               double declination,
                                                               const Site& site, UtcTime when) {
  double rightAscension = 0, catalogueDeclination = 0;
  // The same site, time and (absent) refraction as Observe, run backwards.
  const int status = eraAtoc13("H", hourAngle, declination, when.jd1, when.jd2, 0.0,
                               site.longitude, site.latitude, site.elevation, 0.0, 0.0, 0.0, 0.0,
                               0.0, 0.55, &rightAscension, &catalogueDeclination);
  if (status < 0) return std::nullopt;
  return std::pair{eraAnp(rightAscension), catalogueDeclination};
}

double LocalSiderealTime(const Site& site, UtcTime when) {
  double tai1 = 0, tai2 = 0, tt1 = 0, tt2 = 0;
  eraUtctai(when.jd1, when.jd2, &tai1, &tai2);
  eraTaitt(tai1, tai2, &tt1, &tt2);
  // UT1 taken as UTC, as above.
  return eraAnp(eraGst06a(when.jd1, when.jd2, tt1, tt2) + site.longitude);
}

}  // namespace scopemount::cli
