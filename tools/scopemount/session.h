// One connection to a mount for the length of a command (or of a shell), and
// how the program shows what the mount does: a progress line on a terminal,
// plain lines otherwise, JSON lines on request.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "scopemount.h"
#include "sky.h"

namespace scopemount::cli {

// Exit statuses of the program.
inline constexpr int EXIT_LIBRARY_ERROR = 1;
inline constexpr int EXIT_USAGE = 2;
inline constexpr int EXIT_INTERRUPTED = 130;

struct GlobalOptions {
  int32_t model = SCOPE_MODEL_ALTAZ_SIMULATOR;
  std::string port;              // device path for hardware models
  double latitudeDeg = 51.4769;  // the default site: Greenwich
  double longitudeDeg = -0.0005;
  double elevation = 46.0;
  bool json = false;
  std::string loadFile;  // alignment record restored after connecting
};

// Set by Ctrl-C; every wait of the program looks at it.
extern std::atomic<bool> interrupted;
void InstallInterruptHandler();

struct MountStatus {
  uint32_t state = 0;
  double axes[2] = {0, 0};
  double sky[2] = {0, 0};         // hour angle, declination
  double horizontal[2] = {0, 0};  // azimuth, altitude
};

// The state as JSON names it, and as the user reads it.
const char* StateName(uint32_t state);
const char* StateText(uint32_t state);
// Models 6 and 7 run without hardware.
bool IsSimulator(int32_t model);

// One piece of the live status line; when the terminal is too narrow the
// pieces of lowest priority go first.
struct LiveField {
  std::string text;
  int priority;
};

class Output {
 public:
  explicit Output(bool json);
  bool json() const { return json_; }
  // A line of text (text mode) or a JSON object (JSON mode). Events (objects
  // that start with "event") get the UTC time stamped into them.
  void Say(const std::string& text);
  void Json(const std::string& object);
  // One update of a live status line: rewritten in place on a terminal,
  // fitted to its width, and printed as `plain` once a second otherwise.
  void Progress(const std::string& plain, const std::vector<LiveField>& live,
                const std::string& jsonObject);
  void EndProgress();
  // A failure, in the library's own words, on standard error (and as an
  // error event in JSON mode).
  void Failure(int32_t code, const std::string& context);
  void Failure(const std::string& message);
  // Bad input from the user: the same, marked as a usage error.
  void UsageError(const std::string& message);
  // Something the user should know that does not stop the command.
  void Warning(const std::string& message);

 private:
  void ErrorEvent(const std::string& fields);

  bool json_;
  bool terminal_;
  bool progressShown_ = false;
  double lastPlainProgress_ = -1e9;
};

// The live line's width: the terminal's columns, re-read after a resize.
int TerminalColumns();
// The pieces joined by two spaces, least important dropped until the line
// fits in `columns` (and cut if even the most important one does not).
std::string FitLiveLine(std::vector<LiveField> fields, int columns);

class Session {
 public:
  Session(GlobalOptions& options, Output& output);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Connects the chosen model at the chosen site unless already connected;
  // the library's code (failures are reported on the way).
  int32_t Connect();
  void Disconnect();
  bool connected() const { return connected_; }
  Site site() const;
  Output& output() { return output_; }

  int32_t ReadStatus(MountStatus* status) const;
  std::string StatusJson(const MountStatus& status) const;
  std::string StatusText(const MountStatus& status) const;
  std::vector<LiveField> StatusFields(const MountStatus& status) const;

  // After a GOTO was accepted: shows progress until the mount no longer
  // slews. `distanceToGo` gives the remaining angle (radians). Returns 0,
  // or SCOPE_USER_INTERRUPT after Ctrl-C (the axes are stopped then), or
  // the library's code; the caller reports failures.
  int32_t WaitForSlew(const std::function<double()>& distanceToGo);
  // Shows the position for `seconds` while the mount tracks, with its
  // distance from where it should point. Failures as for WaitForSlew.
  int32_t Watch(double seconds, const std::function<double()>& offset);
  void StopBothAxes();
  // Both axes and tracking; the first failure's code.
  int32_t StopEverything();

 private:
  GlobalOptions& options_;
  Output& output_;
  bool connected_ = false;
};

}  // namespace scopemount::cli
