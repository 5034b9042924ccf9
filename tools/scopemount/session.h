// One connection to a mount for the length of a command (or of a shell), and
// how the program shows what the mount does: a progress line on a terminal,
// plain lines otherwise, JSON lines on request.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

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

const char* StateName(uint32_t state);

class Output {
 public:
  explicit Output(bool json);
  bool json() const { return json_; }
  // A line of text (text mode) or a JSON object (JSON mode).
  void Say(const std::string& text);
  void Json(const std::string& object);
  // One update of a live status line: rewritten in place on a terminal,
  // printed as a line once a second otherwise.
  void Progress(const std::string& text, const std::string& jsonObject);
  void EndProgress();
  // A failure, in the library's own words, on standard error.
  void Failure(int32_t code, const std::string& context);
  void Failure(const std::string& message);

 private:
  bool json_;
  bool terminal_;
  bool progressShown_ = false;
  double lastPlainProgress_ = -1e9;
};

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

  // After a GOTO was accepted: shows progress until the mount no longer
  // slews. `distanceToGo` gives the remaining angle (radians). Returns 0,
  // or SCOPE_USER_INTERRUPT after Ctrl-C (the axes are stopped then).
  int32_t WaitForSlew(const std::function<double()>& distanceToGo);
  // Shows the position for `seconds` while the mount tracks, with its
  // distance from where it should point.
  int32_t Watch(double seconds, const std::function<double()>& offset);
  void StopBothAxes();

 private:
  GlobalOptions& options_;
  Output& output_;
  bool connected_ = false;
};

}  // namespace scopemount::cli
