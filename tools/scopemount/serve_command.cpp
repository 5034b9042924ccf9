// scopemount serve: any mount, simulators included, becomes a telescope a
// planetarium program drives over TCP. One thread: a poll() loop serves the
// clients and, about 4 times a second, reads the mount and sends every
// client where it points.
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "format.h"
#include "parser_language.h"
#include "planetarium_protocol.h"
#include "planetarium_server.h"
#include "scopemount.h"
#include "session.h"
#include "sky.h"
#include "text.h"
#include "units.h"

namespace scopemount::cli {

namespace {

namespace pp = planetarium;
using Clock = std::chrono::steady_clock;

constexpr double DEFAULT_UPDATE_INTERVAL_S = 0.25;
constexpr double MIN_UPDATE_INTERVAL_S = 0.001;
constexpr double MAX_UPDATE_INTERVAL_S = 10.0;
// A mount needs a moment before it reports slewing; until then an idle
// mount has not arrived yet.
constexpr double SLEW_START_GRACE_S = 1.5;
constexpr double ARCSECONDS_PER_RADIAN = DEGREES_PER_RADIAN * 3600.0;

enum class Equinox { J2000, JNow };

struct ServeOptions {
  std::string listen = "127.0.0.1:" + std::to_string(pp::DEFAULT_PORT);
  Equinox equinox = Equinox::J2000;
  double interval = DEFAULT_UPDATE_INTERVAL_S;
};

struct ListenAddress {
  std::string host;
  uint16_t port = pp::DEFAULT_PORT;
};

// "HOST:PORT", "[V6]:PORT", ":PORT" or "PORT" (loopback), "HOST" (default port).
std::optional<ListenAddress> ParseListenAddress(const std::string& text) {
  ListenAddress address;
  std::string portText;
  const size_t colon = text.rfind(':');
  const bool bracketed = !text.empty() && text.front() == '[';
  if (bracketed) {
    const size_t close = text.find(']');
    if (close == std::string::npos) return std::nullopt;
    address.host = text.substr(1, close - 1);
    if (close + 1 < text.size()) {
      if (text[close + 1] != ':') return std::nullopt;
      portText = text.substr(close + 2);
      if (portText.empty()) return std::nullopt;
    }
  } else if (colon != std::string::npos) {
    address.host = text.substr(0, colon);
    portText = text.substr(colon + 1);
    if (portText.empty()) return std::nullopt;
  } else if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
    portText = text;
  } else {
    address.host = text;
  }
  if (!portText.empty()) {
    if (portText.size() > 5 || portText.find_first_not_of("0123456789") != std::string::npos) {
      return std::nullopt;
    }
    const unsigned long port = std::stoul(portText);
    if (port > 65535) return std::nullopt;
    address.port = static_cast<uint16_t>(port);
  }
  return address;
}

int64_t MicrosecondsSinceEpoch() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

std::string Place(double rightAscension, double declination) {
  return "RA " + FormatHours(rightAscension) + " Dec " + FormatSignedDegrees(declination);
}

// The mount, seen through the client's equinox.
class PlanetariumTelescope {
 public:
  PlanetariumTelescope(Session& session, Equinox equinox)
      : session_(session), output_(session.output()), equinox_(equinox) {}

  // Starts a GOTO to a place in the client's frame (a newer one replaces a
  // running one); a refusal is shown in the library's words.
  void Goto(const std::string& peer, const pp::Goto& message) {
    const double ra = pp::RightAscensionRadians(message.rightAscension);
    const double dec = pp::DeclinationRadians(message.declination);
    const std::string where = Place(ra, dec) + " (" + EquinoxName() + ")" + _(" from ") + peer;
    const std::string target = "\"target\":{\"frame\":\"" + std::string(EquinoxName()) +
                               "\",\"rightAscension\":" + JsonNumber(ra * HOURS_PER_RADIAN) +
                               ",\"declination\":" + JsonNumber(dec * DEGREES_PER_RADIAN) + "}";
    // The units reach past the poles; such a place does not exist.
    const std::optional<std::pair<double, double>> observed =
        std::fabs(dec) <= PI / 2 ? ToObserved(ra, dec) : std::nullopt;
    const int32_t r = observed ? ScopeGotoEquatorial(observed->first, observed->second)
                               : SCOPE_INVALID_PARAMETER;
    if (r != SCOPE_OK) {
      const std::string limits =
          r == SCOPE_TARGET_TOO_HIGH || r == SCOPE_TARGET_TOO_LOW
              ? ", " + AltitudeLimitNote(AltitudeOf(observed->first, observed->second,
                                                    session_.site()))
              : "";
      Event(_("GOTO refused: ") + where + limits + ": " + ErrorMessage(r) + " (" +
                std::to_string(r) + ")",
            "{\"event\":\"goto-refused\",\"code\":" + std::to_string(r) + "," + target + "}");
      return;
    }
    target_ = {ra, dec};
    slewStart_ = Clock::now();
    sawSlewing_ = false;
    Event(_("GOTO started: ") + where, "{\"event\":\"goto-started\"," + target + "}");
  }

  // Reads the mount; the position in the client's frame, or the library's
  // code when the mount does not answer. Notices arrival.
  int32_t Read(pp::CurrentPosition* position) {
    uint32_t state = 0;
    double sky[2] = {0, 0};
    int32_t r = ScopeGetMountStatus(&state);
    if (r == SCOPE_OK) r = ScopeGetSkyPosition(sky);
    if (r != SCOPE_OK) return r;
    const std::optional<std::pair<double, double>> place = FromObserved(sky[0], sky[1]);
    if (!place) return SCOPE_INVALID_PARAMETER;
    position->timeMicroseconds = MicrosecondsSinceEpoch();
    position->rightAscension = pp::RightAscensionUnits(place->first);
    position->declination = pp::DeclinationUnits(place->second);
    position->status = pp::STATUS_OK;
    NoticeArrival(state, *place);
    return SCOPE_OK;
  }

  void Event(const std::string& text, const std::string& json) {
    output_.Say(text);
    output_.Json(json);
  }

 private:
  const char* EquinoxName() const { return equinox_ == Equinox::J2000 ? "J2000" : "JNow"; }

  // Client frame to the mount's (hour angle, declination of date).
  std::optional<std::pair<double, double>> ToObserved(double ra, double dec) const {
    const UtcTime now = UtcNow();
    if (equinox_ == Equinox::JNow) {
      return std::pair{HourAngleOf(ra, session_.site(), now), dec};
    }
    const std::optional<ObservedPlace> place = Observe(ra, dec, session_.site(), now);
    if (!place) return std::nullopt;
    return std::pair{place->hourAngle, place->declination};
  }

  std::optional<std::pair<double, double>> FromObserved(double hourAngle, double dec) const {
    const UtcTime now = UtcNow();
    if (equinox_ == Equinox::JNow) {
      return std::pair{RightAscensionOf(hourAngle, session_.site(), now), dec};
    }
    return CatalogueFromObserved(hourAngle, dec, session_.site(), now);
  }

  void NoticeArrival(uint32_t state, std::pair<double, double> place) {
    if (!target_) return;
    if (state == SCOPE_STATE_SLEWING) {
      sawSlewing_ = true;
      return;
    }
    const double since = std::chrono::duration<double>(Clock::now() - slewStart_).count();
    if (!sawSlewing_ && since < SLEW_START_GRACE_S) return;
    const double off =
        ScopeAngularSeparation(place.first, place.second, target_->first, target_->second);
    char detail[64];
    std::snprintf(detail, sizeof detail, _(" (%.1f\" from the target)"),
                  off * ARCSECONDS_PER_RADIAN);
    Event(std::string(_("GOTO arrived: ")) + Place(place.first, place.second) + " (" +
              EquinoxName() + ")" + detail + ", " +
              StateText(state),
          "{\"event\":\"goto-arrived\",\"offArcsec\":" +
              std::to_string(off * ARCSECONDS_PER_RADIAN) + "}");
    target_.reset();
  }

  Session& session_;
  Output& output_;
  const Equinox equinox_;
  std::optional<std::pair<double, double>> target_;  // in the client's frame
  Clock::time_point slewStart_;
  bool sawSlewing_ = false;
};

int RunServe(GlobalOptions& globals, const ServeOptions& o) {
  Output output(globals.json);
  const std::optional<ListenAddress> address = ParseListenAddress(o.listen);
  if (!address) {
    output.Failure(_("--listen expects ADDRESS:PORT, got '") + o.listen + "'");
    return EXIT_USAGE;
  }
  Session session(globals, output);
  if (session.Connect() != SCOPE_OK) return EXIT_LIBRARY_ERROR;
  PlanetariumTelescope telescope(session, o.equinox);

  pp::CurrentPosition position;
  int32_t mountState = telescope.Read(&position);
  std::unique_ptr<pp::Server> server;
  pp::ServerHandlers handlers;
  handlers.clientCame = [&](int client, const std::string& peer) {
    telescope.Event(_("Client ") + peer + _(" came (") + std::to_string(server->clientCount()) +
                        _(" connected)"),
                    "{\"event\":\"client-came\",\"peer\":\"" + peer + "\"}");
    // The newcomer learns where the telescope points at once.
    if (mountState == SCOPE_OK) server->Send(client, pp::Encode(position));
  };
  handlers.clientWent = [&](const std::string& peer, const std::string& why) {
    telescope.Event(_("Client ") + peer + _(" went: ") + why + " (" +
                        std::to_string(server->clientCount()) + _(" connected)"),
                    "{\"event\":\"client-went\",\"peer\":\"" + peer + "\"}");
  };
  handlers.gotoReceived = [&](const std::string& peer, const pp::Goto& message) {
    telescope.Goto(peer, message);
  };
  server = std::make_unique<pp::Server>(handlers);
  const std::string failure = server->Listen(address->host, address->port);
  if (!failure.empty()) {
    output.Failure(_("cannot listen on ") + o.listen + ": " + failure);
    return EXIT_USAGE;
  }
  telescope.Event(_("Listening on ") + server->address() + " (" +
                      (o.equinox == Equinox::J2000 ? "J2000" : "JNow") + _("); Ctrl-C stops"),
                  "{\"event\":\"listening\",\"address\":\"" + server->address() + "\"}");

  const auto interval = std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(o.interval));
  Clock::time_point nextUpdate = Clock::now();
  int exitStatus = 0;
  while (!interrupted) {
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(nextUpdate - Clock::now());
    server->Serve(static_cast<int>(std::max<int64_t>(wait.count(), 0)));
    if (interrupted || Clock::now() < nextUpdate) continue;
    nextUpdate = std::max(nextUpdate + interval, Clock::now());
    mountState = telescope.Read(&position);
    if (mountState != SCOPE_OK) {
      // Without the telescope there is nothing to serve.
      output.Failure(mountState, _("reading the mount"));
      server->CloseAll(_("the telescope stopped answering"));
      exitStatus = EXIT_LIBRARY_ERROR;
      break;
    }
    server->Broadcast(pp::Encode(position));
  }
  if (interrupted) {
    session.StopBothAxes();
    server->CloseAll(_("the server is stopping"));
    telescope.Event(_("Stopped the axes."), "{\"event\":\"stopped\"}");
  }
  session.Disconnect();
  return exitStatus;
}

}  // namespace

void AddServeCommand(CLI::App& app, GlobalOptions& options, int& exitStatus) {
  auto o = std::make_shared<ServeOptions>();
  CLI::App* c = app.add_subcommand(
      "serve", _("Let a planetarium program drive the mount over TCP (its telescope protocol)"));
  c->add_option("--listen", o->listen,
                _("ADDRESS:PORT to listen on (default 127.0.0.1:10001, loopback only)"));
  c->add_option("--equinox", o->equinox,
                _("Coordinates the clients send: j2000 (default) or jnow"))
      ->transform(OneOf({"j2000", "jnow"}));  // in the order of Equinox
  c->add_option("--interval", o->interval,
                _("Seconds between position updates (default 0.25)"))
      ->check(NumberIn(MIN_UPDATE_INTERVAL_S, MAX_UPDATE_INTERVAL_S));
  c->callback([&options, &exitStatus, o] { exitStatus = RunServe(options, *o); });
}

}  // namespace scopemount::cli
