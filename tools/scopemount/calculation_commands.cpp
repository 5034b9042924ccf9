// `sidereal-time` and `separation`: the library's two pure calculations.
#include <cmath>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string>

#include "commands.h"
#include "format.h"
#include "scopemount.h"

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

// "YYYY-MM-DD HH:MM[:SS[.mmm]]" (a 'T' may stand for the space).
std::optional<SYSTEMTIME> ParseLocalTime(const std::string& text) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, fields = 0;
  double second = 0.0;
  char separator = ' ';
  int consumed = 0;
  fields = std::sscanf(text.c_str(), "%4d-%2d-%2d%c%2d:%2d%n", &year, &month, &day, &separator,
                       &hour, &minute, &consumed);
  if (fields < 6 || (separator != ' ' && separator != 'T')) return std::nullopt;
  const char* rest = text.c_str() + consumed;
  if (*rest == ':') {
    int more = 0;
    if (std::sscanf(rest, ":%lf%n", &second, &more) != 1) return std::nullopt;
    rest += more;
  }
  if (*rest != '\0') return std::nullopt;
  if (year < 1 || year > 9999 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 ||
      minute > 59 || !(second >= 0.0 && second < 60.0) || hour < 0 || minute < 0) {
    return std::nullopt;
  }
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = static_cast<int>(second);
  const int milliseconds = static_cast<int>(std::lround((second - tm.tm_sec) * 1000.0));
  return ToSystemTime(tm, milliseconds > 999 ? 999 : milliseconds);
}

int PrintSiderealTime(const SiderealTimeOptions& options) {
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
    const std::optional<SYSTEMTIME> parsed = ParseLocalTime(options.at);
    if (!parsed) {
      std::fprintf(stderr, "error: --at expects a local time as \"YYYY-MM-DD HH:MM[:SS[.mmm]]\", got \"%s\"\n",
                   options.at.c_str());
      return 2;
    }
    local = *parsed;
  }
  if (options.utcOffsetHours) offset = *options.utcOffsetHours;

  const double gmst = ScopeGetSiderealTime(local, offset, dst ? 1 : 0);
  const double gmstHours = gmst * 12.0 / PI;
  std::printf("local time   %04u-%02u-%02u %02u:%02u:%02u.%03u (UTC%+.2f h%s)\n", local.wYear,
              local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond,
              local.wMilliseconds, offset, dst ? ", daylight saving" : "");
  // The library's value is not reduced into one turn; show it in [0, 2 pi).
  double reduced = std::fmod(gmst, 2.0 * PI);
  if (reduced < 0.0) reduced += 2.0 * PI;
  std::printf("Greenwich mean sidereal time  %s  (%.9f rad)\n", FormatHoursLong(gmst).c_str(),
              reduced);
  if (options.longitudeDegrees) {
    const double lstHours = gmstHours + *options.longitudeDegrees / 15.0;
    std::printf("local mean sidereal time      %s  (longitude %+.4f deg)\n",
                FormatHoursLong(lstHours / HOURS_PER_RADIAN).c_str(), *options.longitudeDegrees);
  }
  return 0;
}

}  // namespace

void AddSiderealTimeCommand(CLI::App& app) {
  auto options = std::make_shared<SiderealTimeOptions>();
  CLI::App* command = app.add_subcommand(
      "sidereal-time", "Greenwich mean sidereal time of a local time (default: now)");
  command->add_option("--at", options->at, "Local time, \"YYYY-MM-DD HH:MM[:SS[.mmm]]\"");
  command->add_option("--utc-offset", options->utcOffsetHours,
                      "Local time minus UTC in hours (default: the system's)")
      ->check(CLI::Range(-14.0, 14.0));
  command->add_flag("--dst", options->daylightSaving, "Daylight saving is in force (adds an hour)");
  command->add_option("--longitude", options->longitudeDegrees,
                      "East longitude in degrees, to show local sidereal time too")
      ->check(CLI::Range(-180.0, 180.0));
  command->callback([options] {
    const int status = PrintSiderealTime(*options);
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
      "separation", "Great-circle angle between two positions (degrees unless --radians)");
  command->add_option("LON1", options->lon1, "Longitude-like angle of the first position")
      ->required();
  command->add_option("LAT1", options->lat1, "Latitude-like angle of the first position")
      ->required();
  command->add_option("LON2", options->lon2, "Longitude-like angle of the second position")
      ->required();
  command->add_option("LAT2", options->lat2, "Latitude-like angle of the second position")
      ->required();
  command->add_flag("--radians", options->radians, "Angles in and out are radians");
  command->callback([options] {
    const double toRadians = options->radians ? 1.0 : PI / 180.0;
    for (double v : {options->lon1, options->lat1, options->lon2, options->lat2}) {
      if (!std::isfinite(v)) throw CLI::ValidationError("separation", "angles must be finite numbers");
    }
    const double separation =
        ScopeAngularSeparation(options->lon1 * toRadians, options->lat1 * toRadians,
                               options->lon2 * toRadians, options->lat2 * toRadians);
    std::printf("%.9f\n", separation / toRadians);
  });
}

}  // namespace scopemount::cli
