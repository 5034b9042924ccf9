// Angles as people read and type them.
#pragma once

#include <optional>
#include <string>

namespace scopemount::cli {

inline constexpr double PI = 3.141592653589793;
inline constexpr double DEGREES_PER_RADIAN = 180.0 / PI;
inline constexpr double HOURS_PER_RADIAN = 12.0 / PI;

// "08h 34m 57.0881s", reduced into [0, 24) hours.
std::string FormatHoursLong(double radians);
// "18:36:56.3", reduced into [0, 24) hours.
std::string FormatHours(double radians);
// "+38:47:01", a signed sexagesimal angle.
std::string FormatSignedDegrees(double radians);
// "123.456", degrees with three decimals.
std::string FormatDegrees(double radians);

// "18.6", "18:36:56.3" or "18h36m56.3s" hours; "-16.7", "-16:42:58" degrees.
// Return radians, or nothing for text that is not such an angle.
std::optional<double> ParseHours(const std::string& text);
std::optional<double> ParseDegrees(const std::string& text);

// JSON pieces: a number with six decimals (null if not finite), a quoted
// string with the characters JSON reserves escaped, and the current UTC time
// as "2026-11-23T20:33:01.123Z".
std::string JsonNumber(double value);
std::string JsonString(const std::string& text);
std::string UtcTimestamp();

}  // namespace scopemount::cli
