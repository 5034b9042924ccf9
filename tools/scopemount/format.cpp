#include "format.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace scopemount::cli {

namespace {

double ReducedHours(double radians) {
  double hours = std::fmod(radians * HOURS_PER_RADIAN, 24.0);
  if (hours < 0.0) hours += 24.0;
  return hours;
}

struct Sexagesimal {
  int whole;
  int minutes;
  double seconds;
};

// Splits a non-negative value, carrying a rounded 60 seconds upward.
Sexagesimal Split(double value, int secondDecimals) {
  const double scale = std::pow(10.0, secondDecimals);
  double totalSeconds = std::round(value * 3600.0 * scale) / scale;
  Sexagesimal s;
  s.whole = static_cast<int>(totalSeconds / 3600.0);
  totalSeconds -= s.whole * 3600.0;
  s.minutes = static_cast<int>(totalSeconds / 60.0);
  s.seconds = totalSeconds - s.minutes * 60.0;
  if (s.seconds < 0.0) s.seconds = 0.0;
  return s;
}

// "a:b:c", "a b c", "ahbmcs", "adbmcs" or a decimal number; the sign of the
// whole applies to every part.
std::optional<double> ParseSexagesimal(const std::string& text) {
  std::string cleaned;
  for (char c : text) {
    const bool separator = c == ':' || c == 'h' || c == 'm' || c == 's' || c == 'd' || c == '\'' ||
                           c == '"';
    cleaned += separator ? ' ' : c;
  }
  const char* p = cleaned.c_str();
  double parts[3] = {0, 0, 0};
  int count = 0;
  bool negative = false;
  while (*p == ' ') ++p;
  if (*p == '-' || *p == '+') {
    negative = *p == '-';
    ++p;
  }
  while (*p != '\0' && count < 3) {
    char* end = nullptr;
    const double v = std::strtod(p, &end);
    if (end == p || !std::isfinite(v) || v < 0.0) return std::nullopt;
    parts[count++] = v;
    p = end;
    while (*p == ' ') ++p;
  }
  if (count == 0 || *p != '\0') return std::nullopt;
  if (count > 1 && (parts[1] >= 60.0 || parts[2] >= 60.0)) return std::nullopt;
  const double value = parts[0] + parts[1] / 60.0 + parts[2] / 3600.0;
  return negative ? -value : value;
}

}  // namespace

std::string FormatHoursLong(double radians) {
  const Sexagesimal s = Split(ReducedHours(radians), 4);
  char buffer[48];
  std::snprintf(buffer, sizeof buffer, "%02dh %02dm %07.4fs", s.whole % 24, s.minutes, s.seconds);
  return buffer;
}

std::string FormatHours(double radians) {
  const Sexagesimal s = Split(ReducedHours(radians), 1);
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%02d:%02d:%04.1f", s.whole % 24, s.minutes, s.seconds);
  return buffer;
}

std::string FormatSignedDegrees(double radians) {
  const double degrees = radians * DEGREES_PER_RADIAN;
  const Sexagesimal s = Split(std::fabs(degrees), 0);
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%c%02d:%02d:%02d", degrees < 0 ? '-' : '+', s.whole,
                s.minutes, static_cast<int>(s.seconds));
  return buffer;
}

std::string FormatDegrees(double radians) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.3f", radians * DEGREES_PER_RADIAN);
  return buffer;
}

std::optional<double> ParseHours(const std::string& text) {
  const std::optional<double> hours = ParseSexagesimal(text);
  if (!hours) return std::nullopt;
  return *hours / HOURS_PER_RADIAN;
}

std::optional<double> ParseDegrees(const std::string& text) {
  const std::optional<double> degrees = ParseSexagesimal(text);
  if (!degrees) return std::nullopt;
  return *degrees / DEGREES_PER_RADIAN;
}

std::string JsonNumber(double value) {
  if (!std::isfinite(value)) return "null";
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.6f", value);
  return buffer;
}

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
          out += escaped;
        } else {
          out += c;  // UTF-8 passes through as it is
        }
    }
  }
  return out + "\"";
}

std::string UtcTimestamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm utc{};
  gmtime_r(&now.tv_sec, &utc);
  char buffer[80];
  std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                static_cast<int>(now.tv_nsec / 1000000));
  return buffer;
}

}  // namespace scopemount::cli
