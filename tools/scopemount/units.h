// One convention for the units the program reads and prints: hour angle
// signed, -12 h to +12 h; azimuth 0 to 360 degrees from north through east;
// right ascension 0 to 24 h; declination and altitude -90 to +90 degrees.
#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace scopemount::cli {

// Radians into [-pi, pi) and [0, 2 pi).
double SignedHourAngle(double radians);
double AzimuthFromNorth(double radians);

// "-01:23:45.6": a signed hour angle.
std::string FormatHourAngle(double radians);

// The altitude limits the library applies to GOTO targets unless told
// otherwise (the program leaves them in force), and the words for a refused
// target: "altitude -5.0 deg is below the horizon; limits in force 0 to 75 deg".
inline constexpr double ALTITUDE_LOWER_LIMIT_DEG = 0.0;
inline constexpr double ALTITUDE_UPPER_LIMIT_DEG = 75.0;
std::string AltitudeLimitNote(double altitude);

// Command-line numbers refused in words: "abc is not a number", "95 is
// outside -90 to 90", "1.5 is not a whole number".
CLI::Validator NumberIn(double low, double high);
CLI::Validator WholeNumberIn(long low, long high);
CLI::Validator AnyNumber();

// An angle typed as "18:36:56.3", "18h36m56s" or "18.6", checked against
// [low, high] in its own unit (hours or degrees). Returns radians, or
// nothing with `problem` saying why ("RA 25 is outside 0 to 24 h").
std::optional<double> ParseHoursIn(const std::string& what, const std::string& text, double low,
                                   double high, std::string* problem);
std::optional<double> ParseDegreesIn(const std::string& what, const std::string& text, double low,
                                     double high, std::string* problem);

}  // namespace scopemount::cli
