#include "session.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "format.h"
#include "text.h"
#include "units.h"

namespace scopemount::cli {

std::atomic<bool> interrupted{false};

namespace {

using Clock = std::chrono::steady_clock;

// How often a wait looks at the mount, and how long a GOTO may take before
// the program gives up waiting (the mount keeps its own time-outs).
constexpr auto POLL_INTERVAL = std::chrono::milliseconds(100);
constexpr double PLAIN_PROGRESS_INTERVAL_S = 1.0;
constexpr double SLEW_WAIT_LIMIT_S = 600.0;
// A worker needs a moment before it reports slewing; until then an idle
// mount has not arrived yet.
constexpr double SLEW_START_GRACE_S = 1.5;
// The port number a --port path is bound to.
constexpr int32_t PORT_FOR_PATH = 2;

// Columns when the terminal does not say.
constexpr int DEFAULT_COLUMNS = 80;
// The live line leaves the last column free: writing into it makes some
// terminals wrap at once.
constexpr int RIGHT_MARGIN = 1;
constexpr const char* LIVE_SEPARATOR = "  ";

void OnInterrupt(int) { interrupted = true; }

// Set by SIGWINCH; the next live line reads the new width.
std::atomic<bool> terminalResized{true};
void OnResize(int) { terminalResized = true; }

std::string EventWithTime(const std::string& object) {
  static const std::string EVENT_START = "{\"event\":\"";
  if (object.compare(0, EVENT_START.size(), EVENT_START) != 0) return object;
  const size_t nameEnd = object.find('"', EVENT_START.size());
  if (nameEnd == std::string::npos) return object;
  return object.substr(0, nameEnd + 1) + ",\"utc\":\"" + UtcTimestamp() + "\"" +
         object.substr(nameEnd + 1);
}

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string Arcseconds(double radians) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.1f\"", radians * DEGREES_PER_RADIAN * 3600.0);
  return buffer;
}

bool ReadRecordFile(const std::string& path, unsigned char* record) {
  std::ifstream in(path, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (!in.eof() && in.fail()) return false;
  if (bytes.size() != SCOPE_ALIGNMENT_RECORD_SIZE) return false;
  std::copy(bytes.begin(), bytes.end(), record);
  return true;
}

}  // namespace

void InstallInterruptHandler() {
  struct sigaction action {};
  action.sa_handler = OnInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  struct sigaction resize {};
  resize.sa_handler = OnResize;
  sigemptyset(&resize.sa_mask);
  resize.sa_flags = SA_RESTART;
  sigaction(SIGWINCH, &resize, nullptr);
}

int TerminalColumns() {
  static int columns = DEFAULT_COLUMNS;
  if (terminalResized.exchange(false)) {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    columns = known ? size.ws_col : DEFAULT_COLUMNS;
  }
  return columns;
}

std::string FitLiveLine(std::vector<LiveField> fields, int columns) {
  const size_t room = static_cast<size_t>(std::max(columns - RIGHT_MARGIN, 1));
  const auto joined = [&fields] {
    std::string line;
    for (const LiveField& field : fields) {
      if (!line.empty()) line += LIVE_SEPARATOR;
      line += field.text;
    }
    return line;
  };
  std::string line = joined();
  while (DisplayColumns(line) > room && fields.size() > 1) {
    const auto least = std::min_element(
        fields.begin(), fields.end(),
        [](const LiveField& a, const LiveField& b) { return a.priority < b.priority; });
    fields.erase(least);
    line = joined();
  }
  return CutToColumns(line, room);
}

const char* StateName(uint32_t state) {
  switch (state) {
    case SCOPE_STATE_IDLE:
      return "idle";
    case SCOPE_STATE_TRACKING:
      return "tracking";
    case SCOPE_STATE_SLEWING:
      return "slewing";
    case SCOPE_STATE_MOVING:
      return "moving";
    default:
      return "unknown";
  }
}

const char* StateText(uint32_t state) {
  switch (state) {
    case SCOPE_STATE_IDLE:
      return _("idle");
    case SCOPE_STATE_TRACKING:
      return _("tracking");
    case SCOPE_STATE_SLEWING:
      return _("slewing");
    case SCOPE_STATE_MOVING:
      return _("moving");
    default:
      return _("unknown");
  }
}

// ---------------------------------------------------------------------------
// Output

Output::Output(bool json) : json_(json), terminal_(isatty(STDOUT_FILENO) == 1) {}

void Output::Say(const std::string& text) {
  if (json_) return;
  EndProgress();
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

void Output::Json(const std::string& object) {
  if (!json_) return;
  std::printf("%s\n", EventWithTime(object).c_str());
  std::fflush(stdout);
}

void Output::Progress(const std::string& plain, const std::vector<LiveField>& live,
                      const std::string& jsonObject) {
  static const Clock::time_point programStart = Clock::now();
  const double now = SecondsSince(programStart);
  if (json_ || !terminal_) {
    if (now - lastPlainProgress_ < PLAIN_PROGRESS_INTERVAL_S) return;
    lastPlainProgress_ = now;
    if (json_) {
      Json(jsonObject);
    } else {
      std::printf("%s\n", plain.c_str());
      std::fflush(stdout);
    }
    return;
  }
  // Back to the start of the line and clear it: the line rewrites itself.
  std::printf("\r%s\x1b[K", FitLiveLine(live, TerminalColumns()).c_str());
  std::fflush(stdout);
  progressShown_ = true;
}

void Output::EndProgress() {
  if (progressShown_) std::printf("\n");
  progressShown_ = false;
  lastPlainProgress_ = -1e9;
}

void Output::ErrorEvent(const std::string& fields) {
  if (!json_) return;
  Json("{\"event\":\"error\"," + fields + "}");
}

void Output::Failure(int32_t code, const std::string& context) {
  EndProgress();
  const std::string message = ErrorMessage(code);
  ErrorEvent("\"code\":" + std::to_string(code) + ",\"message\":" + JsonString(message) +
             (context.empty() ? "" : ",\"context\":" + JsonString(context)));
  std::fprintf(stderr, "scopemount: %s%s%s (%d)\n", context.c_str(), context.empty() ? "" : ": ",
               message.c_str(), code);
}

void Output::Failure(const std::string& message) {
  EndProgress();
  ErrorEvent("\"message\":" + JsonString(message));
  std::fprintf(stderr, "scopemount: %s\n", message.c_str());
}

void Output::UsageError(const std::string& message) {
  EndProgress();
  ErrorEvent("\"usage\":true,\"message\":" + JsonString(message));
  std::fprintf(stderr, "scopemount: %s\n", message.c_str());
}

void Output::Warning(const std::string& message) {
  EndProgress();
  if (json_) Json("{\"event\":\"warning\",\"message\":" + JsonString(message) + "}");
  std::fprintf(stderr, "scopemount: %s\n", message.c_str());
}

// ---------------------------------------------------------------------------
// Session

Session::Session(GlobalOptions& options, Output& output) : options_(options), output_(output) {}

Session::~Session() { Disconnect(); }

Site Session::site() const {
  return {options_.latitudeDeg / DEGREES_PER_RADIAN, options_.longitudeDeg / DEGREES_PER_RADIAN,
          options_.elevation};
}

bool IsSimulator(int32_t model) {
  return model == SCOPE_MODEL_EQUATORIAL_SIMULATOR || model == SCOPE_MODEL_ALTAZ_SIMULATOR;
}

int32_t Session::Connect() {
  if (connected_) return SCOPE_OK;
  if (!options_.port.empty() && IsSimulator(options_.model)) {
    output_.Warning("--port " + options_.port +
                    _(" is ignored: the simulators need no serial line"));
  } else if (!options_.port.empty()) {
    const int32_t bound = ScopeSetPortPath(PORT_FOR_PATH, options_.port.c_str());
    if (bound != SCOPE_OK) {
      output_.Failure(bound, _("port ") + options_.port);
      return bound;
    }
    ScopeSetComPort(PORT_FOR_PATH);
  }
  const Site here = site();
  const int32_t r = ScopeConnect(options_.model, here.latitude, here.elevation);
  if (r != SCOPE_OK) {
    const bool noPort = options_.port.empty() && !IsSimulator(options_.model);
    output_.Failure(r, _("connecting ") + ModelName(options_.model) +
                           (noPort ? _(" (no --port given)") : ""));
    return r;
  }
  connected_ = true;
  char text[160];
  std::snprintf(text, sizeof text, _("Connected: %s at %.4f%s %.4f%s, %.0f m"),
                ModelName(options_.model).c_str(), std::fabs(options_.latitudeDeg),
                options_.latitudeDeg < 0 ? " S" : " N", std::fabs(options_.longitudeDeg),
                options_.longitudeDeg < 0 ? " W" : " E", options_.elevation);
  output_.Say(text);
  output_.Json("{\"event\":\"connected\",\"model\":" + std::to_string(options_.model) + "}");
  if (!options_.loadFile.empty()) {
    unsigned char record[SCOPE_ALIGNMENT_RECORD_SIZE];
    if (!ReadRecordFile(options_.loadFile, record)) {
      output_.Failure(SCOPE_INVALID_ALIGNMENT_DATA, options_.loadFile);
      return SCOPE_INVALID_ALIGNMENT_DATA;
    }
    const int32_t loaded = ScopeSetAlignmentData(record);
    if (loaded != SCOPE_OK) {
      output_.Failure(loaded, options_.loadFile);
      return loaded;
    }
    output_.Say(_("Alignment restored from ") + options_.loadFile);
  }
  return SCOPE_OK;
}

void Session::Disconnect() {
  if (!connected_) return;
  ScopeDisconnect();
  connected_ = false;
  output_.Say(_("Disconnected."));
  output_.Json("{\"event\":\"disconnected\"}");
}

int32_t Session::ReadStatus(MountStatus* status) const {
  int32_t r = ScopeGetMountStatus(&status->state);
  if (r == SCOPE_OK) r = ScopeGetAxisPositions(status->axes);
  if (r == SCOPE_OK) r = ScopeGetSkyPosition(status->sky);
  if (r == SCOPE_OK) r = ScopeGetHorizontalPosition(status->horizontal);
  return r;
}

std::string Session::StatusText(const MountStatus& s) const {
  char text[200];
  std::snprintf(text, sizeof text, _("%s axes %9s %9s  HA %s Dec %s  Az %8s Alt %8s"),
                PadToColumns(StateText(s.state), 8).c_str(), FormatDegrees(s.axes[0]).c_str(),
                FormatDegrees(s.axes[1]).c_str(), FormatHourAngle(s.sky[0]).c_str(),
                FormatSignedDegrees(s.sky[1]).c_str(),
                FormatDegrees(AzimuthFromNorth(s.horizontal[0])).c_str(),
                FormatDegrees(s.horizontal[1]).c_str());
  return text;
}

std::vector<LiveField> Session::StatusFields(const MountStatus& s) const {
  // Where the sky is matters most while slewing, the raw axes least.
  return {{StateText(s.state), 9},
          {_("Az ") + FormatDegrees(s.horizontal[0]) + _(" Alt ") + FormatDegrees(s.horizontal[1]),
           7},
          {_("HA ") + FormatHours(s.sky[0]) + _(" Dec ") + FormatSignedDegrees(s.sky[1]), 5},
          {_("axes ") + FormatDegrees(s.axes[0]) + " " + FormatDegrees(s.axes[1]), 3}};
}

std::string Session::StatusJson(const MountStatus& s) const {
  return std::string("{\"state\":\"") + StateName(s.state) + "\",\"axis0\":" +
         JsonNumber(s.axes[0] * DEGREES_PER_RADIAN) +
         ",\"axis1\":" + JsonNumber(s.axes[1] * DEGREES_PER_RADIAN) +
         ",\"hourAngle\":" + JsonNumber(SignedHourAngle(s.sky[0]) * HOURS_PER_RADIAN) +
         ",\"declination\":" + JsonNumber(s.sky[1] * DEGREES_PER_RADIAN) +
         ",\"azimuth\":" + JsonNumber(AzimuthFromNorth(s.horizontal[0]) * DEGREES_PER_RADIAN) +
         ",\"altitude\":" + JsonNumber(s.horizontal[1] * DEGREES_PER_RADIAN) + "}";
}

void Session::StopBothAxes() {
  ScopeStopAxis(SCOPE_AXIS_0);
  ScopeStopAxis(SCOPE_AXIS_1);
}

int32_t Session::StopEverything() {
  // Tracking first, so that it cannot set an axis going again.
  const int32_t results[] = {ScopeSetTracking(0), ScopeStopAxis(SCOPE_AXIS_0),
                             ScopeStopAxis(SCOPE_AXIS_1)};
  for (const int32_t r : results) {
    if (r != SCOPE_OK) return r;
  }
  return SCOPE_OK;
}

int32_t Session::WaitForSlew(const std::function<double()>& distanceToGo) {
  const Clock::time_point start = Clock::now();
  bool sawSlewing = false;
  for (;;) {
    if (interrupted) {
      StopBothAxes();
      return SCOPE_USER_INTERRUPT;
    }
    MountStatus status;
    const int32_t r = ReadStatus(&status);
    if (r != SCOPE_OK) return r;
    const double toGo = distanceToGo();
    const std::string toGoText = _("to go ") + FormatDegrees(toGo);
    std::vector<LiveField> live = StatusFields(status);
    live.insert(live.begin() + 1, LiveField{toGoText, 8});
    output_.Progress(StatusText(status) + "  " + toGoText, live,
                     "{\"event\":\"progress\",\"status\":" + StatusJson(status) +
                         ",\"toGo\":" + JsonNumber(toGo * DEGREES_PER_RADIAN) + "}");
    if (status.state == SCOPE_STATE_SLEWING) sawSlewing = true;
    const bool settled = status.state != SCOPE_STATE_SLEWING &&
                         (sawSlewing || SecondsSince(start) > SLEW_START_GRACE_S);
    if (settled) {
      output_.EndProgress();
      return SCOPE_OK;
    }
    if (SecondsSince(start) > SLEW_WAIT_LIMIT_S) {
      StopBothAxes();
      output_.Say(_("The mount did not arrive in time; stopped it."));
      return SCOPE_AXIS_BUSY;
    }
    std::this_thread::sleep_for(POLL_INTERVAL);
  }
}

int32_t Session::Watch(double seconds, const std::function<double()>& offset) {
  const Clock::time_point start = Clock::now();
  double lastShown = -1.0;
  for (;;) {
    if (interrupted) return SCOPE_USER_INTERRUPT;
    const double elapsed = SecondsSince(start);
    if (elapsed - lastShown >= 1.0 || elapsed >= seconds) {
      lastShown = elapsed;
      MountStatus status;
      const int32_t r = ReadStatus(&status);
      if (r != SCOPE_OK) return r;
      const double off = offset();
      char when[32];
      std::snprintf(when, sizeof when, "t+%4.1fs ", elapsed);
      output_.Say(std::string(when) + StatusText(status) + _("  off ") + Arcseconds(off));
      output_.Json("{\"event\":\"tracking\",\"t\":" + JsonNumber(elapsed) +
                   ",\"status\":" + StatusJson(status) +
                   ",\"offArcsec\":" + JsonNumber(off * DEGREES_PER_RADIAN * 3600.0) + "}");
    }
    if (elapsed >= seconds) return SCOPE_OK;
    std::this_thread::sleep_for(POLL_INTERVAL);
  }
}

}  // namespace scopemount::cli
