#include "units.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "format.h"
#include "text.h"

namespace scopemount::cli {

namespace {

std::string Number(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

std::optional<double> ParseAngleIn(const std::string& what, const std::string& text, double low,
                                   double high, bool hours, std::string* problem) {
  const std::optional<double> radians = hours ? ParseHours(text) : ParseDegrees(text);
  const double unitsPerRadian = hours ? HOURS_PER_RADIAN : DEGREES_PER_RADIAN;
  const char* unit = hours ? _(" h") : _(" deg");
  if (!radians) {
    *problem = what + " '" + text + _("' is not a number");
    return std::nullopt;
  }
  // Back from radians, the ends of the range may come out a hair beyond.
  constexpr double ROUNDING = 1e-9;
  const double value = *radians * unitsPerRadian;
  if (value < low - ROUNDING || value > high + ROUNDING) {
    *problem =
        what + " " + text + _(" is outside ") + Number(low) + _(" to ") + Number(high) + unit;
    return std::nullopt;
  }
  return radians;
}

// "NUMBER in [-90, 90]": the type a validator adds to the help.
std::string Range(const char* format, const std::string& low, const std::string& high) {
  char text[120];
  std::snprintf(text, sizeof text, format, low.c_str(), high.c_str());
  return text;
}

CLI::Validator Numbers(double low, double high, bool whole, const std::string& description) {
  return CLI::Validator(
      [low, high, whole](std::string& text) -> std::string {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0' || !std::isfinite(value)) {
          return text + _(" is not a number");
        }
        if (whole && value != std::trunc(value)) return text + _(" is not a whole number");
        if (value < low || value > high) {
          return text + _(" is outside ") + Number(low) + _(" to ") + Number(high);
        }
        return {};
      },
      description);
}

}  // namespace

double SignedHourAngle(double radians) {
  const double reduced = std::remainder(radians, 2.0 * PI);
  return reduced >= PI ? reduced - 2.0 * PI : reduced;
}

double AzimuthFromNorth(double radians) {
  const double reduced = std::fmod(radians, 2.0 * PI);
  return reduced < 0.0 ? reduced + 2.0 * PI : reduced;
}

std::string FormatHourAngle(double radians) {
  const double signedHours = SignedHourAngle(radians);
  return (signedHours < 0.0 ? "-" : "+") + FormatHours(std::fabs(signedHours));
}

std::string AltitudeLimitNote(double altitude) {
  char text[120];
  const double degrees = altitude * DEGREES_PER_RADIAN;
  std::snprintf(text, sizeof text, _("altitude %.1f deg%s; limits in force %g to %g deg"), degrees,
                degrees < 0.0 ? _(" is below the horizon") : "", ALTITUDE_LOWER_LIMIT_DEG,
                ALTITUDE_UPPER_LIMIT_DEG);
  return text;
}

CLI::Validator NumberIn(double low, double high) {
  return Numbers(low, high, false, Range(_("NUMBER in [%s, %s]"), Number(low), Number(high)));
}

CLI::Validator WholeNumberIn(long low, long high) {
  return Numbers(static_cast<double>(low), static_cast<double>(high), true,
                 Range(_("INTEGER in [%s, %s]"), std::to_string(low), std::to_string(high)));
}

CLI::Validator AnyNumber() { return Numbers(-HUGE_VAL, HUGE_VAL, false, _("NUMBER")); }

std::optional<double> ParseHoursIn(const std::string& what, const std::string& text, double low,
                                   double high, std::string* problem) {
  return ParseAngleIn(what, text, low, high, true, problem);
}

std::optional<double> ParseDegreesIn(const std::string& what, const std::string& text, double low,
                                     double high, std::string* problem) {
  return ParseAngleIn(what, text, low, high, false, problem);
}

}  // namespace scopemount::cli
