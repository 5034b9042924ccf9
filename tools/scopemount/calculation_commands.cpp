// `sidereal-time` and `separation`: the library's two pure calculations.
#include <cmath>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string>

#include <erfa.h>

#include "commands.h"
#include "format.h"
#include "scopemount.h"
#include "sky.h"
#include "text.h"
#include "units.h"

namespace scopemount::cli {

namespace {

constexpr double SECONDS_PER_HOUR = 3600.0;

struct SiderealTimeOptions {
  std::string at;                     // local civil time; empty means now
  std::optional<double> utcOffsetHours;
  bool daylightSaving = false;
  std::optional<double> longitudeDegrees;
};

SYSTEMTIME ToSystemTime(const std::tm& tm, int milliseconds) {
  SYSTEMTIME t{};
  t.wYear = static_cast<uint16_t>(tm.tm_year + 1900);
  t.wMonth = static_cast<uint16_t>(tm.tm_mon + 1);
  t.wDayOfWeek = static_cast<uint16_t>(tm.tm_wday);
  t.wDay = static_cast<uint16_t>(tm.tm_mday);
  t.wHour = static_cast<uint16_t>(tm.tm_hour);
  t.wMinute = static_cast<uint16_t>(tm.tm_min);
  t.wSecond = static_cast<uint16_t>(tm.tm_sec);
  t.wMilliseconds = static_cast<uint16_t>(milliseconds);
  return t;
}

// A typed date and time as the library's SYSTEMTIME; nothing for one that
// does not exist (February 30th, 24:00; leap seconds aside).
std::optional<SYSTEMTIME> CalendarSystemTime(const CalendarText& c) {
  if (c.year < 1 || c.year > 9999 || !(c.second >= 0.0 && c.second < 60.0) ||
      !UtcFromCalendar(c.year, c.month, c.day, c.hour, c.minute, c.second)) {
    return std::nullopt;
  }
  std::tm tm{};
  tm.tm_year = c.year - 1900;
  tm.tm_mon = c.month - 1;
  tm.tm_mday = c.day;
  tm.tm_hour = c.hour;
  tm.tm_min = c.minute;
  tm.tm_sec = static_cast<int>(c.second);
  const int milliseconds = static_cast<int>(std::lround((c.second - tm.tm_sec) * 1000.0));
  return ToSystemTime(tm, milliseconds > 999 ? 999 : milliseconds);
}

// The moment in UTC of a local civil time, as a Julian date (UTC).
UtcTime UtcOf(const SYSTEMTIME& local, double offsetHours, bool dst) {
  double jd0 = 0.0, mjd = 0.0;
  eraCal2jd(local.wYear, local.wMonth, local.wDay, &jd0, &mjd);
  const double hours = local.wHour + local.wMinute / 60.0 +
                       (local.wSecond + local.wMilliseconds / 1000.0) / SECONDS_PER_HOUR -
                       offsetHours - (dst ? 1.0 : 0.0);
  return UtcTime{jd0, mjd + hours / 24.0};
}

// The equation of the equinoxes: apparent minus mean sidereal time.
double EquationOfTheEquinoxes(UtcTime when) {
  double tai1 = 0, tai2 = 0, tt1 = 0, tt2 = 0;
  eraUtctai(when.jd1, when.jd2, &tai1, &tai2);
  eraTaitt(tai1, tai2, &tt1, &tt2);
  return eraEe06a(tt1, tt2);
}

void PrintSiderealTimes(const SiderealTimeOptions& options, const SYSTEMTIME& local,
                        double offset, bool dst, bool json) {
  // The library gives the mean value, not reduced into one turn.
  const double gmst = ScopeGetSiderealTime(local, offset, dst ? 1 : 0);
  const double gast = gmst + EquationOfTheEquinoxes(UtcOf(local, offset, dst));
  const bool withLongitude = options.longitudeDegrees.has_value();
  const double longitude = options.longitudeDegrees.value_or(0.0) / DEGREES_PER_RADIAN;
  char localTime[48];
  std::snprintf(localTime, sizeof localTime, "%04u-%02u-%02uT%02u:%02u:%02u.%03u", local.wYear,
                local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond,
                local.wMilliseconds);
  if (json) {
    const auto hours = [](double radians) {
      return std::fmod(std::fmod(radians * HOURS_PER_RADIAN, 24.0) + 24.0, 24.0);
    };
    std::printf("{\"localTime\":\"%s\",\"utcOffsetHours\":%.2f,\"daylightSaving\":%s,"
                "\"greenwichMeanHours\":%.9f,\"greenwichApparentHours\":%.9f",
                localTime, offset, dst ? "true" : "false", hours(gmst), hours(gast));
    if (withLongitude) {
      std::printf(",\"longitudeDegrees\":%.6f,\"localMeanHours\":%.9f,\"localApparentHours\":%.9f",
                  *options.longitudeDegrees, hours(gmst + longitude), hours(gast + longitude));
    }
    std::printf("}\n");
    return;
  }
  std::printf(_("local time                        %s (UTC%+.2f h%s)\n"), localTime, offset,
              dst ? _(", daylight saving") : "");
  std::printf(_("Greenwich mean sidereal time      %s  (%.9f rad)\n"),
              FormatHoursLong(gmst).c_str(),
              std::fmod(std::fmod(gmst, 2.0 * PI) + 2.0 * PI, 2.0 * PI));
  std::printf(_("Greenwich apparent sidereal time  %s\n"), FormatHoursLong(gast).c_str());
  if (withLongitude) {
    std::printf(_("local mean sidereal time          %s  (longitude %+.4f deg)\n"),
                FormatHoursLong(gmst + longitude).c_str(), *options.longitudeDegrees);
    std::printf(_("local apparent sidereal time      %s\n"),
                FormatHoursLong(gast + longitude).c_str());
  }
}

int PrintSiderealTime(const SiderealTimeOptions& options, bool json) {
  SYSTEMTIME local{};
  double offset = 0.0;
  bool dst = options.daylightSaving;
  if (options.at.empty()) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm tm{};
    localtime_r(&now.tv_sec, &tm);
    local = ToSystemTime(tm, static_cast<int>(now.tv_nsec / 1000000));
    // The system knows its own offset; daylight saving is part of it.
    offset = static_cast<double>(tm.tm_gmtoff) / SECONDS_PER_HOUR;
    if (tm.tm_isdst > 0 && !options.utcOffsetHours) {
      offset -= 1.0;
      dst = true;
    }
  } else {
    const std::optional<CalendarText> typed = ParseCalendarText(options.at);
    // A time ending in Z is UTC, as `stars --at` and `goto --at` read it.
    if (typed && typed->utc &&
        ((options.utcOffsetHours && *options.utcOffsetHours != 0.0) || dst)) {
      std::fprintf(stderr, _("scopemount: --at: '%s' is UTC; leave out --utc-offset and --dst\n"),
                   options.at.c_str());
      return 2;
    }
    const std::optional<SYSTEMTIME> parsed =
        typed ? CalendarSystemTime(*typed) : std::optional<SYSTEMTIME>{};
    if (!parsed) {
      std::fprintf(stderr,
                   _("scopemount: --at: '%s' is not a local time \"YYYY-MM-DD HH:MM[:SS[.mmm]]\" "
                   "that exists\n"),
                   options.at.c_str());
      return 2;
    }
    local = *parsed;
  }
  if (options.utcOffsetHours) offset = *options.utcOffsetHours;
  PrintSiderealTimes(options, local, offset, dst, json);
  return 0;
}

}  // namespace

void AddSiderealTimeCommand(CLI::App& app) {
  auto options = std::make_shared<SiderealTimeOptions>();
  CLI::App* command = app.add_subcommand(
      "sidereal-time",
      _("Greenwich mean and apparent sidereal time of a local time (default: now), and local "
      "sidereal time with --longitude"));
  command->add_option("--at", options->at,
                      _("Local time, \"YYYY-MM-DD HH:MM[:SS[.mmm]]\"; UTC with a Z at the end"));
  command->add_option("--utc-offset", options->utcOffsetHours,
                      _("Local time minus UTC in hours (default: the system's)"))
      ->check(NumberIn(-14.0, 14.0));
  command->add_flag("--dst", options->daylightSaving,
                    _("Daylight saving is in force (adds an hour)"));
  command->add_option("--longitude", options->longitudeDegrees,
                      _("East longitude in degrees, to show local sidereal time too"))
      ->check(NumberIn(-180.0, 180.0));
  command->callback([command, options] {
    // --json belongs to the whole program (it may follow the command).
    const CLI::Option* json = command->get_parent()->get_option_no_throw("--json");
    const int status = PrintSiderealTime(*options, json != nullptr && json->count() > 0);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

void AddSeparationCommand(CLI::App& app) {
  struct Options {
    double lon1 = 0, lat1 = 0, lon2 = 0, lat2 = 0;
    bool radians = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "separation", _("Great-circle angle between two positions (degrees unless --radians)"));
  command->add_option("LON1", options->lon1, _("Longitude-like angle of the first position"))
      ->required()->check(AnyNumber());
  command->add_option("LAT1", options->lat1, _("Latitude-like angle of the first position"))
      ->required()->check(AnyNumber());
  command->add_option("LON2", options->lon2, _("Longitude-like angle of the second position"))
      ->required()->check(AnyNumber());
  command->add_option("LAT2", options->lat2, _("Latitude-like angle of the second position"))
      ->required()->check(AnyNumber());
  command->add_flag("--radians", options->radians, _("Angles in and out are radians"));
  command->callback([options] {
    const double toRadians = options->radians ? 1.0 : PI / 180.0;
    for (double v : {options->lon1, options->lat1, options->lon2, options->lat2}) {
      if (!std::isfinite(v)) {
        throw CLI::ValidationError("separation", _("angles must be finite numbers"));
      }
    }
    const double separation =
        ScopeAngularSeparation(options->lon1 * toRadians, options->lat1 * toRadians,
                               options->lon2 * toRadians, options->lat2 * toRadians);
    std::printf("%.9f\n", separation / toRadians);
  });
}

}  // namespace scopemount::cli
