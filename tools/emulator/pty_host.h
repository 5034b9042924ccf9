// Serves an emulated line on a pseudo-terminal, so any serial program (the
// library included) can open the printed path and talk to the controller.
// Pseudo-terminals carry no modem lines: the line's RTS/CTS wiring does not
// reach the other end, whose CTS reads low.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "emulated_line.h"

namespace scopemount::emulation {

class PtyHost {
 public:
  explicit PtyHost(EmulatedLine& line);
  ~PtyHost();
  PtyHost(const PtyHost&) = delete;
  PtyHost& operator=(const PtyHost&) = delete;

  // Creates the pseudo-terminal and starts serving; false when no
  // pseudo-terminal could be had.
  bool Start();
  // Stops serving and closes the pseudo-terminal (also done on destruction).
  void Stop();
  // The path the other end opens (empty before Start).
  const std::string& Path() const { return path_; }

 private:
  void Serve();
  bool PassHostBytes();
  bool DeliverArrivals();
  void CloseAll();

  EmulatedLine& line_;
  int master_ = -1;
  int slave_ = -1;  // held open so the line survives clients coming and going
  int stopPipe_[2] = {-1, -1};
  std::string path_;
  std::thread server_;
};

}  // namespace scopemount::emulation
