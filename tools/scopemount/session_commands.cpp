// Commands that talk to a mount: goto, status, move, stop, align, save,
// stars, shell, and the short simulated session the program runs when it is
// given no command.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "format.h"
#include "line_editor.h"
#include "parser_language.h"
#include "scopemount.h"
#include "session.h"
#include "sky.h"
#include "text.h"
#include "units.h"

namespace scopemount::cli {

namespace {

constexpr double SIDEREAL_RATE = 2.0 * PI / 86164.09065;
// The demo picks a star comfortably up: above this and below the mount's
// default upper limit.
constexpr double DEMO_MIN_ALTITUDE = 25.0 / DEGREES_PER_RADIAN;
constexpr double DEMO_MAX_ALTITUDE = 70.0 / DEGREES_PER_RADIAN;
constexpr double DEMO_MAX_MAGNITUDE = 1.5;
constexpr double DEMO_TRACK_SECONDS = 5.0;

// Where a GOTO aims, and how far the mount still is from it.
struct Target {
  std::string description;
  enum class Kind { Sky, Horizontal, Axes } kind = Kind::Sky;
  double first = 0.0;   // hour angle, azimuth or axis 0 (radians)
  double second = 0.0;  // declination, altitude or axis 1
  // For sky targets: the target's hour angle and declination now.
  std::function<std::pair<double, double>()> skyNow;
  // The target as the user gave it, for JSON: a frame and its two angles.
  std::string json = "null";
  // The frame the target was given in ("J2000" or "of date"; empty for
  // hour angle, horizontal and axis targets), and the moment it is planned for.
  std::string frame;
  SkyClock clock;
};

std::string TargetJson(const char* frame, const char* firstName, double first,
                       const char* secondName, double second) {
  return std::string("{\"frame\":\"") + frame + "\",\"" + firstName + "\":" + JsonNumber(first) +
         ",\"" + secondName + "\":" + JsonNumber(second) + "}";
}

constexpr const char* J2000 = "J2000";
constexpr const char* OF_DATE = "of date";

std::string RaDecText(double rightAscension, double declination, const char* frame) {
  return "RA " + FormatHours(rightAscension) + " Dec " + FormatSignedDegrees(declination) + " (" +
         (frame == OF_DATE ? _("of date") : frame) + ")";
}

std::string RaDecJson(double rightAscension, double declination) {
  char text[96];
  std::snprintf(text, sizeof text, "{\"rightAscension\":%.6f,\"declination\":%.6f}",
                rightAscension * HOURS_PER_RADIAN, declination * DEGREES_PER_RADIAN);
  return text;
}

double SkyOffset(const Target& target) {
  double sky[2];
  if (ScopeGetSkyPosition(sky) != SCOPE_OK) return NAN;
  const auto [ha, dec] = target.skyNow();
  return ScopeAngularSeparation(sky[0], sky[1], ha, dec);
}

double DistanceToGo(const Target& target) {
  double here[2];
  switch (target.kind) {
    case Target::Kind::Sky:
      return SkyOffset(target);
    case Target::Kind::Horizontal:
      if (ScopeGetHorizontalPosition(here) != SCOPE_OK) return NAN;
      return ScopeAngularSeparation(here[0], here[1], target.first, target.second);
    case Target::Kind::Axes:
      if (ScopeGetAxisPositions(here) != SCOPE_OK) return NAN;
      return ScopeAngularSeparation(here[0], here[1], target.first, target.second);
  }
  return NAN;
}

// A sky position that turns with the sky from an hour angle given now.
std::function<std::pair<double, double>()> FixedOnSky(double hourAngle, double declination) {
  const UtcTime start = UtcNow();
  return [=] {
    const UtcTime now = UtcNow();
    const double seconds = ((now.jd1 - start.jd1) + (now.jd2 - start.jd2)) * 86400.0;
    return std::pair{hourAngle + seconds * SIDEREAL_RATE, declination};
  };
}

std::function<std::pair<double, double>()> StarOnSky(const Star& star, const Site& site,
                                                     const SkyClock& clock) {
  return [&star, site, clock] {
    const std::optional<ObservedPlace> place = Observe(star, site, clock.Now());
    return place ? std::pair{place->hourAngle, place->declination} : std::pair{double(NAN), double(NAN)};
  };
}

class Context {
 public:
  GlobalOptions options;
  int exitStatus = 0;

  Output& output() {
    if (!output_) output_ = std::make_unique<Output>(options.json);
    return *output_;
  }
  Session& session() {
    if (!session_) session_ = std::make_unique<Session>(options, output());
    return *session_;
  }
  // Connects if needed; false (with the exit status set) on failure.
  bool Connected() {
    if (session().Connect() == SCOPE_OK) return true;
    exitStatus = EXIT_LIBRARY_ERROR;
    return false;
  }
  void Fail(int32_t code, const std::string& what) {
    output().Failure(code, what);
    exitStatus = code == SCOPE_USER_INTERRUPT ? EXIT_INTERRUPTED : EXIT_LIBRARY_ERROR;
  }
  void UsageError(const std::string& message) {
    output().UsageError(message);
    exitStatus = EXIT_USAGE;
  }
  void Finish() { session_.reset(); }

 private:
  std::unique_ptr<Output> output_;
  std::unique_ptr<Session> session_;
};

// Where a sky target's GOTO ended, as RA and Dec of date and, for catalogue
// targets, J2000 too.
struct Pointing {
  double ofDate[2];
  std::optional<std::pair<double, double>> j2000;
};

Pointing PointingOf(const Target& target, const MountStatus& status, const Site& site) {
  const UtcTime now = target.clock.Now();
  Pointing p{{RightAscensionOf(status.sky[0], site, now), status.sky[1]}, std::nullopt};
  if (target.frame == J2000) {
    p.j2000 = CatalogueFromObserved(status.sky[0], status.sky[1], site, now);
  }
  return p;
}

std::string PointingText(const Target& target, const MountStatus& status, const Site& site) {
  const Pointing p = PointingOf(target, status, site);
  std::string text = _("Pointing at ") + RaDecText(p.ofDate[0], p.ofDate[1], OF_DATE);
  if (p.j2000) text += ", " + RaDecText(p.j2000->first, p.j2000->second, J2000);
  return text;
}

std::string PointingJson(const Target& target, const MountStatus& status, const Site& site) {
  if (target.frame.empty()) return "";
  const Pointing p = PointingOf(target, status, site);
  std::string json = ",\"pointing\":{\"ofDate\":" + RaDecJson(p.ofDate[0], p.ofDate[1]);
  if (p.j2000) json += ",\"j2000\":" + RaDecJson(p.j2000->first, p.j2000->second);
  return json + "}";
}

// Runs a GOTO to `target`, shows it, then tracks for `trackSeconds`.
void GotoAndTrack(Context& ctx, Target target, double trackSeconds) {
  if (!ctx.Connected()) return;
  Session& session = ctx.session();
  int32_t r = SCOPE_OK;
  switch (target.kind) {
    case Target::Kind::Sky: {
      const auto [ha, dec] = target.skyNow();
      r = ScopeGotoEquatorial(ha, dec);
      if (r == SCOPE_TARGET_TOO_HIGH || r == SCOPE_TARGET_TOO_LOW) {
        return ctx.Fail(r, "GOTO " + target.description + ", " +
                               AltitudeLimitNote(AltitudeOf(ha, dec, session.site())));
      }
      break;
    }
    case Target::Kind::Horizontal:
      // The library counts azimuth from -180 to 180 degrees.
      r = ScopeGotoHorizontal(std::remainder(target.first, 2.0 * PI), target.second);
      if (r == SCOPE_TARGET_TOO_HIGH || r == SCOPE_TARGET_TOO_LOW) {
        return ctx.Fail(r, "GOTO " + target.description + ", " + AltitudeLimitNote(target.second));
      }
      break;
    case Target::Kind::Axes:
      r = ScopeGotoAxes(target.first, target.second);
      break;
  }
  if (r != SCOPE_OK) return ctx.Fail(r, "GOTO " + target.description);
  session.output().Say(_("Slewing to ") + target.description + _(" ..."));
  session.output().Json("{\"event\":\"goto\",\"description\":" + JsonString(target.description) +
                        ",\"target\":" + target.json + "}");
  r = session.WaitForSlew([&target] { return DistanceToGo(target); });
  if (r != SCOPE_OK) return ctx.Fail(r, "GOTO " + target.description);
  MountStatus status;
  if ((r = session.ReadStatus(&status)) != SCOPE_OK) return ctx.Fail(r, _("reading the mount"));
  char off[64];
  std::snprintf(off, sizeof off, _("  (%.1f\" from the target)"),
                DistanceToGo(target) * DEGREES_PER_RADIAN * 3600.0);
  session.output().Say(_("Arrived: ") + session.StatusText(status) + off);
  session.output().Json("{\"event\":\"arrived\",\"status\":" + session.StatusJson(status) +
                        PointingJson(target, status, session.site()) + "}");
  if (!target.frame.empty()) session.output().Say(PointingText(target, status, session.site()));
  if (trackSeconds <= 0.0) return;

  if (target.kind != Target::Kind::Sky) {
    // A horizontal or axis GOTO leaves the mount standing: track from here.
    double sky[2];
    ScopeGetSkyPosition(sky);
    target.skyNow = FixedOnSky(sky[0], sky[1]);
    ScopeSetTracking(1);
  }
  session.output().Say(_("Tracking for ") + std::to_string(static_cast<int>(trackSeconds)) +
                       _(" s ..."));
  r = session.Watch(trackSeconds, [&target] { return SkyOffset(target); });
  if (r != SCOPE_OK) ctx.Fail(r, _("tracking"));
}

// --- goto ------------------------------------------------------------------

struct GotoOptions {
  std::string star;
  std::vector<std::string> radec, hadec, altaz, axes;
  bool ofDate = false;
  std::string at;  // ISO 8601 UTC; empty means now
  double dut1 = 0.0;
  double track = 0.0;
};

// Reads the moment to plan for; false (with a usage error) if it is wrong.
bool ReadClock(Context& ctx, const std::string& at, double dut1, SkyClock* clock) {
  std::optional<UtcTime> moment;
  if (!at.empty()) {
    std::string problem;
    moment = ParseUtc(at, &problem);
    if (!moment) {
      ctx.UsageError(_("--at: ") + problem);
      return false;
    }
  }
  *clock = SkyClock(moment, dut1);
  return true;
}

// Two angles, the first in hours or degrees, each checked against its range.
std::optional<std::pair<double, double>> ParsePair(Context& ctx, const std::string& option,
                                                   const std::vector<std::string>& values,
                                                   const char* firstName, bool firstInHours,
                                                   double firstLow, double firstHigh,
                                                   const char* secondName) {
  std::string problem;
  const std::optional<double> first =
      firstInHours ? ParseHoursIn(firstName, values[0], firstLow, firstHigh, &problem)
                   : ParseDegreesIn(firstName, values[0], firstLow, firstHigh, &problem);
  const std::optional<double> second =
      first ? ParseDegreesIn(secondName, values[1], -90.0, 90.0, &problem) : std::nullopt;
  if (!second) {
    ctx.UsageError(option + ": " + problem);
    return std::nullopt;
  }
  return std::pair{*first, *second};
}

void RunGoto(Context& ctx, const GotoOptions& o) {
  const int given = !o.star.empty() + !o.radec.empty() + !o.hadec.empty() + !o.altaz.empty() +
                    !o.axes.empty();
  if (given != 1) {
    return ctx.UsageError(_("goto needs exactly one of --star, --radec, --hadec, --altaz, --axes"));
  }
  if (o.ofDate && o.radec.empty()) return ctx.UsageError(_("--of-date goes with --radec"));
  Target target;
  if (!ReadClock(ctx, o.at, o.dut1, &target.clock)) return;
  const Site site = ctx.session().site();
  if (!o.star.empty()) {
    const Star* star = FindStar(o.star);
    if (star == nullptr) {
      return ctx.UsageError(_("unknown star '") + o.star + _("' (scopemount stars lists them)"));
    }
    target.description = star->name;
    target.frame = J2000;
    target.skyNow = StarOnSky(*star, site, target.clock);
    target.json = TargetJson("J2000", "rightAscension", star->rightAscension * HOURS_PER_RADIAN,
                             "declination", star->declination * DEGREES_PER_RADIAN);
  } else if (!o.radec.empty()) {
    const auto pair = ParsePair(ctx, "--radec", o.radec, "RA", true, 0.0, 24.0, "Dec");
    if (!pair) return;
    const auto [ra, dec] = *pair;
    target.frame = o.ofDate ? OF_DATE : J2000;
    target.description = RaDecText(ra, dec, o.ofDate ? OF_DATE : J2000);
    target.json = TargetJson(target.frame.c_str(), "rightAscension", ra * HOURS_PER_RADIAN,
                             "declination", dec * DEGREES_PER_RADIAN);
    const SkyClock clock = target.clock;
    if (o.ofDate) {
      target.skyNow = [ra, dec, site, clock] {
        return std::pair{HourAngleOf(ra, site, clock.Now()), dec};
      };
    } else {
      // The catalogue place brought to date the way the stars' are.
      target.skyNow = [ra, dec, site, clock] {
        const std::optional<ObservedPlace> place = Observe(ra, dec, site, clock.Now());
        return place ? std::pair{place->hourAngle, place->declination}
                     : std::pair{double(NAN), double(NAN)};
      };
    }
  } else if (!o.hadec.empty()) {
    const auto pair = ParsePair(ctx, "--hadec", o.hadec, "HA", true, -12.0, 12.0, "Dec");
    if (!pair) return;
    target.description = "HA " + FormatHourAngle(pair->first) + " Dec " +
                         FormatSignedDegrees(pair->second);
    target.skyNow = FixedOnSky(pair->first, pair->second);
    target.json = TargetJson("hour angle", "hourAngle", pair->first * HOURS_PER_RADIAN,
                             "declination", pair->second * DEGREES_PER_RADIAN);
  } else if (!o.altaz.empty()) {
    const auto pair = ParsePair(ctx, "--altaz", o.altaz, "Az", false, 0.0, 360.0, "Alt");
    if (!pair) return;
    target.kind = Target::Kind::Horizontal;
    target.first = pair->first;
    target.second = pair->second;
    target.description = "Az " + FormatDegrees(pair->first) + " Alt " + FormatDegrees(pair->second);
    target.json = TargetJson("horizontal", "azimuth", pair->first * DEGREES_PER_RADIAN,
                             "altitude", pair->second * DEGREES_PER_RADIAN);
  } else {
    const auto pair = ParsePair(ctx, "--axes", o.axes, "axis 0", false, -360.0, 360.0, "axis 1");
    if (!pair) return;
    target.kind = Target::Kind::Axes;
    target.first = pair->first;
    target.second = pair->second;
    target.description = "axes " + FormatDegrees(pair->first) + " " + FormatDegrees(pair->second);
    target.json = TargetJson("axes", "axis0", pair->first * DEGREES_PER_RADIAN, "axis1",
                             pair->second * DEGREES_PER_RADIAN);
  }
  GotoAndTrack(ctx, target, o.track);
}

void AddPlanningOptions(CLI::App& c, std::string& at, double& dut1) {
  c.add_option("--at", at, _("Plan for this UTC moment (ISO 8601, e.g. 2026-03-01T20:00:00Z)"));
  c.add_option("--dut1", dut1, _("UT1-UTC in seconds, where known (default 0)"))
      ->check(NumberIn(-0.9, 0.9));
}

void AddGoto(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<GotoOptions>();
  CLI::App* c = app.add_subcommand("goto", _("Slew to a star or a position, then track"));
  c->add_option("--star", o->star, _("A bright star by name (see `stars`)"));
  c->add_option("--radec", o->radec,
                _("Right ascension (0 to 24 hours) and declination (degrees), J2000 unless "
                "--of-date"))
      ->expected(2)->allow_extra_args(false);
  c->add_flag("--of-date", o->ofDate, _("--radec is an apparent place of date, not J2000"));
  c->add_option("--hadec", o->hadec, _("Hour angle (-12 to +12 hours) and declination (degrees)"))
      ->expected(2)->allow_extra_args(false);
  c->add_option("--altaz", o->altaz,
                _("Azimuth (0 to 360 degrees from north through east) and altitude (degrees)"))
      ->expected(2)->allow_extra_args(false);
  c->add_option("--axes", o->axes, _("Axis 0 and axis 1 angles (degrees)"))
      ->expected(2)->allow_extra_args(false);
  AddPlanningOptions(*c, o->at, o->dut1);
  c->add_option("--track", o->track, _("Keep tracking this many seconds after arriving"))
      ->check(NumberIn(0.0, 86400.0));
  c->callback([&ctx, o] { RunGoto(ctx, *o); });
}

// --- status, stop, move ------------------------------------------------------

void ShowStatus(Context& ctx) {
  MountStatus status;
  const int32_t r = ctx.session().ReadStatus(&status);
  if (r != SCOPE_OK) return ctx.Fail(r, _("reading the mount"));
  ctx.output().Say(ctx.session().StatusText(status));
  ctx.output().Json("{\"event\":\"status\",\"status\":" + ctx.session().StatusJson(status) + "}");
}

void AddStatus(CLI::App& app, Context& ctx) {
  app.add_subcommand("status", _("Show where the mount points and what it does"))
      ->callback([&ctx] {
        if (ctx.Connected()) ShowStatus(ctx);
      });
}

void RunStop(Context& ctx, const std::optional<uint32_t>& axis) {
  if (!ctx.Connected()) return;
  if (axis) {
    const int32_t r = ScopeStopAxis(*axis);
    if (r != SCOPE_OK) return ctx.Fail(r, _("stopping axis ") + std::to_string(*axis));
    char text[64];
    std::snprintf(text, sizeof text, _("Stopped axis %u."), static_cast<unsigned>(*axis));
    ctx.output().Say(text);
    ctx.output().Json("{\"event\":\"stopped\",\"axis\":" + std::to_string(*axis) + "}");
  } else {
    const int32_t r = ctx.session().StopEverything();
    if (r != SCOPE_OK) return ctx.Fail(r, _("stopping"));
    ctx.output().Say(_("Stopped both axes and tracking."));
    ctx.output().Json("{\"event\":\"stopped\",\"axis\":\"both\",\"tracking\":false}");
  }
  ShowStatus(ctx);
}

void AddStop(CLI::App& app, Context& ctx) {
  auto axis = std::make_shared<std::optional<uint32_t>>();
  CLI::App* c = app.add_subcommand("stop", _("Stop both axes and tracking (or one axis)"));
  c->add_option("--axis", *axis, _("Stop only this axis: 0 (RA/azimuth) or 1 (Dec/altitude)"))
      ->check(WholeNumberIn(0, 1));
  c->callback([&ctx, axis] { RunStop(ctx, *axis); });
}

struct MoveOptions {
  uint32_t axis = 0;
  double rate = 0.0;
  double seconds = 3.0;
};

void RunMove(Context& ctx, const MoveOptions& o) {
  if (!ctx.Connected()) return;
  const int32_t r = ScopeMoveAxis(o.axis, o.rate / DEGREES_PER_RADIAN);
  if (r != SCOPE_OK) return ctx.Fail(r, _("moving axis ") + std::to_string(o.axis));
  const int32_t watched = ctx.session().Watch(o.seconds, [] { return 0.0; });
  ScopeStopAxis(o.axis);
  if (watched != SCOPE_OK) return ctx.Fail(watched, _("moving"));
  ShowStatus(ctx);
}

void AddMove(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<MoveOptions>();
  CLI::App* c = app.add_subcommand("move", _("Run one axis at a rate for a while, then stop it"));
  c->add_option("AXIS", o->axis, _("0 (RA/azimuth) or 1 (Dec/altitude)"))
      ->required()
      ->check(WholeNumberIn(0, 1));
  c->add_option("RATE", o->rate, _("Degrees per second, signed"))->required()->check(
      NumberIn(-10.0, 10.0));
  c->add_option("--for", o->seconds, _("Seconds to run (default 3)"))->check(NumberIn(0.0, 3600.0));
  c->callback([&ctx, o] { RunMove(ctx, *o); });
}

// --- align, save -------------------------------------------------------------

bool WriteRecord(Context& ctx, const std::string& path) {
  unsigned char record[SCOPE_ALIGNMENT_RECORD_SIZE] = {};
  const int32_t size = ScopeGetAlignmentData(record);
  if (size != SCOPE_ALIGNMENT_RECORD_SIZE) {
    ctx.Fail(size, _("reading the alignment"));
    return false;
  }
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(record), sizeof record);
  if (!out) {
    ctx.UsageError(_("cannot write ") + path);
    return false;
  }
  ctx.output().Say(_("Alignment saved to ") + path);
  return true;
}

Target StarTarget(const Star& star, const Site& site) {
  Target target;
  target.description = star.name;
  target.frame = J2000;
  target.skyNow = StarOnSky(star, site, target.clock);
  target.json = TargetJson(J2000, "rightAscension", star.rightAscension * HOURS_PER_RADIAN,
                           "declination", star.declination * DEGREES_PER_RADIAN);
  return target;
}

void RunAlign(Context& ctx, const std::vector<std::string>& names, const std::string& save) {
  if (names.empty() || names.size() > 3) {
    return ctx.UsageError(_("align takes one to three --star"));
  }
  std::vector<const Star*> stars;
  for (const std::string& name : names) {
    const Star* star = FindStar(name);
    if (star == nullptr) return ctx.UsageError(_("unknown star '") + name + "'");
    stars.push_back(star);
  }
  if (!ctx.Connected()) return;
  const Site site = ctx.session().site();
  double observations[3][4] = {};
  for (size_t i = 0; i < stars.size(); ++i) {
    const Target target = StarTarget(*stars[i], site);
    GotoAndTrack(ctx, target, 0.0);
    if (ctx.exitStatus != 0) return;
    // The simulator's reading stands in for the observer's centring.
    const auto [ha, dec] = target.skyNow();
    double axes[2];
    const int32_t r = ScopeGetAxisPositions(axes);
    if (r != SCOPE_OK) return ctx.Fail(r, _("reading the axes"));
    double* o = observations[i];
    o[0] = ha;
    o[1] = dec;
    o[2] = axes[0];
    o[3] = axes[1];
    ctx.output().Say(std::string(_("Centred ")) + stars[i]->name);
  }
  int32_t r = SCOPE_OK;
  if (stars.size() == 1) r = ScopeAlignOneStar(observations[0]);
  if (stars.size() == 2) r = ScopeAlignTwoStars(observations[0], observations[1]);
  if (stars.size() == 3) r = ScopeAlignThreeStars(observations[0], observations[1], observations[2]);
  if (r != SCOPE_OK) return ctx.Fail(r, _("aligning"));
  double misalignment = 0.0, cone = 0.0, nonPerp = 0.0;
  const int32_t quality = ScopeGetAlignmentQuality(&misalignment);
  ScopeGetPointingTerms(&cone, &nonPerp);
  char text[160];
  std::snprintf(text, sizeof text,
                _("Aligned on %zu star(s): quality %d, misalignment %.1f\", cone %.1f\", "
                "non-perpendicularity %.1f\""),
                stars.size(), quality, misalignment * DEGREES_PER_RADIAN * 3600,
                cone * DEGREES_PER_RADIAN * 3600, nonPerp * DEGREES_PER_RADIAN * 3600);
  ctx.output().Say(text);
  ctx.output().Json("{\"event\":\"aligned\",\"stars\":" + std::to_string(stars.size()) +
                    ",\"quality\":" + std::to_string(quality) + "}");
  if (!save.empty()) WriteRecord(ctx, save);
}

void AddAlign(CLI::App& app, Context& ctx) {
  auto names = std::make_shared<std::vector<std::string>>();
  auto save = std::make_shared<std::string>();
  CLI::App* c = app.add_subcommand("align", _("Align on one to three bright stars"));
  c->add_option("--star", *names, _("A star to centre (repeat for two or three)"))->required();
  c->add_option("--save", *save, _("Write the 200-byte alignment record to this file"));
  c->callback([&ctx, names, save] { RunAlign(ctx, *names, *save); });
}

void AddSave(CLI::App& app, Context& ctx) {
  auto path = std::make_shared<std::string>();
  CLI::App* c = app.add_subcommand("save", _("Write the alignment record to a file"));
  c->add_option("FILE", *path, _("Where to write the 200 bytes"))->required();
  c->callback([&ctx, path] {
    if (ctx.Connected()) WriteRecord(ctx, *path);
  });
}

// --- stars -------------------------------------------------------------------

struct StarsOptions {
  bool upOnly = false;
  std::string at;
  double dut1 = 0.0;
};

std::string StarJson(const Star& star, const ObservedPlace& place) {
  char text[400];
  std::snprintf(text, sizeof text,
                "{\"star\":\"%s\",\"magnitude\":%.2f,\"j2000\":%s,\"ofDate\":%s,"
                "\"hourAngle\":%.6f,\"azimuth\":%.6f,\"altitude\":%.6f}",
                star.name, star.magnitude,
                RaDecJson(star.rightAscension, star.declination).c_str(),
                RaDecJson(place.rightAscension, place.declination).c_str(),
                SignedHourAngle(place.hourAngle) * HOURS_PER_RADIAN,
                AzimuthFromNorth(place.azimuth) * DEGREES_PER_RADIAN,
                place.altitude * DEGREES_PER_RADIAN);
  return text;
}

void ListStars(Context& ctx, const StarsOptions& o) {
  SkyClock clock;
  if (!ReadClock(ctx, o.at, o.dut1, &clock)) return;
  const Site site = ctx.session().site();
  const UtcTime when = clock.Now();
  if (!ctx.options.json) {
    // Labels padded by the columns they take, so Chinese ones line up too.
    const auto left = [](const char* label, size_t columns) { return PadToColumns(label, columns); };
    const auto right = [](const char* label, size_t columns) {
      return PadToColumns(label, columns, true);
    };
    std::printf("%s %s  %s %s  %s %s  %s %s %s\n", left(_("star"), 16).c_str(),
                right(_("mag"), 5).c_str(), left(_("RA J2000"), 10).c_str(),
                left(_("Dec J2000"), 9).c_str(), left(_("RA of date"), 10).c_str(),
                left(_("Dec of date"), 11).c_str(), left(_("HA"), 12).c_str(),
                right(_("Az"), 8).c_str(), right(_("Alt"), 8).c_str());
  }
  for (const Star& star : BrightStars()) {
    const std::optional<ObservedPlace> place = Observe(star, site, when);
    if (!place || (o.upOnly && place->altitude <= 0.0)) continue;
    char line[200];
    std::snprintf(line, sizeof line, "%-16s %5.2f  %-10s %-9s  %-10s %-11s  %-12s %8s %8s%s",
                  star.name, star.magnitude, FormatHours(star.rightAscension).c_str(),
                  FormatSignedDegrees(star.declination).c_str(),
                  FormatHours(place->rightAscension).c_str(),
                  FormatSignedDegrees(place->declination).c_str(),
                  FormatHourAngle(place->hourAngle).c_str(),
                  FormatDegrees(AzimuthFromNorth(place->azimuth)).c_str(),
                  FormatDegrees(place->altitude).c_str(), place->altitude > 0.0 ? _("  up") : "");
    ctx.output().Say(line);
    ctx.output().Json(StarJson(star, *place));
  }
}

void AddStars(CLI::App& app, Context& ctx) {
  auto o = std::make_shared<StarsOptions>();
  CLI::App* c = app.add_subcommand(
      "stars", _("The bright-star catalogue: J2000 places, places of date and what is up now"));
  c->add_flag("--up", o->upOnly, _("Only the stars above the horizon"));
  AddPlanningOptions(*c, o->at, o->dut1);
  c->callback([&ctx, o] { ListStars(ctx, *o); });
}

// --- shell -------------------------------------------------------------------

void AddMountCommands(CLI::App& app, Context& ctx);

const char* ShellFooter() {
  return _("Also: help, quit or exit (end of input ends too). On a terminal Ctrl-C cancels the "
    "running command; at the prompt it ends the shell.");
}

// Runs one line of the shell; false when the line ends the shell.
bool RunShellLine(Context& ctx, const std::string& line, int& failures) {
  const size_t first = line.find_first_not_of(" \t");
  if (first == std::string::npos || line[first] == '#') return true;
  const std::string word = line.substr(first, line.find_first_of(" \t", first) - first);
  if (word == "quit" || word == "exit") return false;
  CLI::App lineApp{_("Commands of the shell, one per line:"), "scopemount"};
  lineApp.footer(ShellFooter());
  TranslateParserTexts(lineApp);
  AddMountCommands(lineApp, ctx);
  TranslateOptionTexts(lineApp);
  if (word == "help") {
    std::printf("%s", lineApp.help().c_str());
    return true;
  }
  ctx.exitStatus = 0;
  try {
    lineApp.parse(line, false);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) {  // --help
      lineApp.exit(e);
      return true;
    }
    ctx.UsageError(FillText(_("%s (in: %s)"), {ParseErrorText(e), line}));
  }
  if (ctx.exitStatus == 0 && lineApp.get_subcommands().empty()) {
    ctx.UsageError(FillText(_("no command in: %s"), {line}));
  }
  if (ctx.exitStatus != 0) ++failures;
  return true;
}

// A script on standard input: Ctrl-C ends it.
void RunScript(Context& ctx, int& failures) {
  std::string line;
  while (!interrupted && std::getline(std::cin, line)) {
    if (!RunShellLine(ctx, line, failures) || ctx.exitStatus == EXIT_INTERRUPTED) break;
  }
}

// A person at a terminal: Ctrl-C cancels the running command and the next
// one at the prompt ends the shell.
void RunPrompt(Context& ctx, int& failures) {
  LineEditor editor;
  std::string line;
  for (;;) {
    const LineEditor::Result read = editor.Read(line);
    if (read != LineEditor::Result::Line || !RunShellLine(ctx, line, failures)) return;
    // Ctrl-C during a command (whether or not it was waiting) cancels it only.
    if (interrupted) {
      interrupted = false;
      if (ctx.exitStatus == EXIT_INTERRUPTED) --failures;  // the user's choice, not a failure
      ctx.output().Say(_("Cancelled; Ctrl-C again at the prompt ends the shell."));
    }
  }
}

void RunShell(Context& ctx) {
  int failures = 0;
  if (isatty(STDIN_FILENO) == 1) {
    RunPrompt(ctx, failures);
  } else {
    RunScript(ctx, failures);
  }
  ctx.exitStatus = interrupted ? EXIT_INTERRUPTED : (failures != 0 ? EXIT_LIBRARY_ERROR : 0);
}

void AddMountCommands(CLI::App& app, Context& ctx) {
  AddGoto(app, ctx);
  AddStatus(app, ctx);
  AddStop(app, ctx);
  AddMove(app, ctx);
  AddAlign(app, ctx);
  AddSave(app, ctx);
  AddStars(app, ctx);
}

// --- the default session -------------------------------------------------------

// A bright star comfortably up, the quickest to reach from where the mount
// stands, so that the session stays short.
const Star* PickDemoStar(const Site& site) {
  double here[2] = {0.0, 0.0};  // azimuth, altitude
  ScopeGetHorizontalPosition(here);
  const UtcTime now = UtcNow();
  const Star* best = nullptr;
  double bestTravel = 1e9;
  const Star* fallback = nullptr;
  for (const Star& star : BrightStars()) {
    if (star.magnitude > DEMO_MAX_MAGNITUDE) break;  // the catalogue is brightest first
    const std::optional<ObservedPlace> place = Observe(star, site, now);
    if (!place) continue;
    if (fallback == nullptr && place->altitude > DEMO_MIN_ALTITUDE / 2) fallback = &star;
    if (place->altitude < DEMO_MIN_ALTITUDE || place->altitude > DEMO_MAX_ALTITUDE) continue;
    // Both axes run at once: the longer way decides.
    const double azimuthTravel = std::fabs(std::remainder(place->azimuth - here[0], 2 * PI));
    const double travel = std::max(azimuthTravel, std::fabs(place->altitude - here[1]));
    if (travel < bestTravel) {
      bestTravel = travel;
      best = &star;
    }
  }
  return best != nullptr ? best : fallback;
}

void RunDemo(Context& ctx) {
  const Site site = ctx.session().site();
  if (!ctx.Connected()) return;
  const Star* star = PickDemoStar(site);
  if (star == nullptr) return ctx.UsageError(_("no bright star is up at this site right now"));
  const std::optional<ObservedPlace> place = Observe(*star, site, UtcNow());
  char text[200];
  std::snprintf(text, sizeof text, _("%s (magnitude %.2f) is up: %s, hour angle %s, Az %s Alt %s"),
                star->name, star->magnitude,
                RaDecText(place->rightAscension, place->declination, OF_DATE).c_str(),
                FormatHourAngle(place->hourAngle).c_str(),
                FormatDegrees(AzimuthFromNorth(place->azimuth)).c_str(),
                FormatDegrees(place->altitude).c_str());
  ctx.output().Say(text);
  GotoAndTrack(ctx, StarTarget(*star, site), DEMO_TRACK_SECONDS);
  if (ctx.exitStatus == 0) {
    ctx.output().Say(_("Next: scopemount goto --star Vega --track 30, scopemount stars --up, "
                     "scopemount shell, scopemount --help"));
  }
}

// Parse errors come before --json is known for sure: look for it by hand.
bool JsonRequested(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--") return false;
    if (argument == "--json") return true;
  }
  return false;
}

}  // namespace

int RunProgram(int argc, char** argv) {
  CLI::App app{_("scopemount: drive a motorised telescope mount.\n"
               "With no command: a short session on the Alt/Az simulator.")};
  TranslateParserTexts(app);
  app.require_subcommand(0, 1);
  // Site, model and output options may follow the command too.
  app.fallthrough();
  Context ctx;
  const bool json = JsonRequested(argc, argv);
  AddVersionFlag(app, json);
  AddModelsCommand(app, ctx.options);
  AddCodesCommand(app, ctx.options);
  AddSiderealTimeCommand(app);
  AddSeparationCommand(app);
  AddEmulateCommand(app, ctx.options);
  app.add_option("--model", ctx.options.model, _("Mount model (scopemount models); default 7"))
      ->check(WholeNumberIn(0, SCOPE_MODEL_COUNT - 1));
  app.add_option("--port", ctx.options.port, _("Serial device of a hardware mount"));
  app.add_option("--lat", ctx.options.latitudeDeg, _("Site latitude, degrees north"))
      ->check(NumberIn(-90.0, 90.0));
  app.add_option("--lon", ctx.options.longitudeDeg, _("Site longitude, degrees east"))
      ->check(NumberIn(-180.0, 180.0));
  app.add_option("--elev", ctx.options.elevation, _("Site elevation, metres"))
      ->check(NumberIn(-1000.0, 8848.0));
  app.add_flag("--json", ctx.options.json, _("Machine-readable status lines"));
  app.add_option("--load", ctx.options.loadFile, _("Restore an alignment record after connecting"))
      ->check(ExistingFile());
  AddMountCommands(app, ctx);
  app.add_subcommand("shell",
                     _("Read commands line by line in one connection (help, quit or exit)"))
      ->footer(ShellFooter())
      ->callback([&ctx] { RunShell(ctx); });
  AddServeCommand(app, ctx.options, ctx.exitStatus);
  TranslateOptionTexts(app);
  InstallInterruptHandler();
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& e) {
    return app.exit(e);  // --help, --version
  } catch (const CLI::RuntimeError& e) {
    return e.get_exit_code();  // a command that reported its own failure
  } catch (const CLI::ParseError& e) {
    // The parser numbers each kind of mistake; scripts need one status for
    // bad arguments.
    if (json) {
      Output(true).Json("{\"event\":\"error\",\"usage\":true,\"message\":" +
                        JsonString(ParseErrorText(e)) + "}");
    }
    app.exit(e);
    return EXIT_USAGE;
  } catch (const std::exception& e) {
    // Nothing should get here; if it does, say so rather than abort.
    std::fprintf(stderr, "scopemount: %s\n", e.what());
    return EXIT_LIBRARY_ERROR;
  }
  if (app.get_subcommands().empty()) RunDemo(ctx);
  ctx.Finish();
  return ctx.exitStatus;
}

}  // namespace scopemount::cli
