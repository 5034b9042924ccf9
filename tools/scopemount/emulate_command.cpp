// `emulate`: serves an emulated controller on a pseudo-terminal until
// Ctrl-C or the end of standard input, so any serial program (this one
// included, with --port) can talk to it.
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "emulated_line.h"
#include "format.h"
#include "session.h"
#include "text.h"
#include "emulated_protocols.h"
#include "pty_host.h"

namespace scopemount::cli {

namespace {

struct EmulateOptions {
  std::string protocol;
  bool list = false;
  bool echo = false;
  bool silent = false;
  uint32_t lateMs = 0;
  uint32_t byteGapMs = 0;
  std::string garbage;
  size_t truncateTo = emulation::NO_LIMIT;
  size_t stopAfter = emulation::NO_LIMIT;
};

// Written by the signal handler, read by the waiting loop.
int stopPipe[2] = {-1, -1};

void RequestStop(int) {
  const char stop = 1;
  [[maybe_unused]] const ssize_t ignored = write(stopPipe[1], &stop, 1);
}

emulation::LineFaults FaultsOf(const EmulateOptions& options) {
  emulation::LineFaults faults;
  faults.silent = options.silent;
  faults.replyDelayMs = options.lateMs;
  faults.byteGapMs = options.byteGapMs;
  faults.garbage.assign(options.garbage.begin(), options.garbage.end());
  faults.truncateTo = options.truncateTo;
  faults.stopAfterCommands = options.stopAfter;
  return faults;
}

// Blocks until a stop signal arrives or standard input ends.
void WaitForStop() {
  for (;;) {
    pollfd watched[2] = {{stopPipe[0], POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    if (poll(watched, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (watched[0].revents != 0) return;
    if (watched[1].revents != 0) {
      char discard[256];
      if (read(STDIN_FILENO, discard, sizeof discard) <= 0) return;
    }
  }
}

void PrintProtocols(std::FILE* to) {
  for (const emulation::EmulatedProtocol& protocol : emulation::EmulatedProtocols()) {
    std::fprintf(to, "  %-12s %s\n", protocol.name, _(protocol.description));
  }
}

void PrintProtocolsJson() {
  for (const emulation::EmulatedProtocol& protocol : emulation::EmulatedProtocols()) {
    std::printf("{\"protocol\":%s,\"description\":%s}\n", JsonString(protocol.name).c_str(),
                JsonString(protocol.description).c_str());
  }
}

int Emulate(const EmulateOptions& options) {
  const emulation::EmulatedProtocol* protocol =
      emulation::FindEmulatedProtocol(options.protocol.c_str());
  if (protocol == nullptr) {
    throw CLI::ValidationError("PROTOCOL", _("unknown controller \"") + options.protocol +
                                               _("\" (scopemount emulate --list)"));
  }
  emulation::WallClock clock;
  const std::unique_ptr<emulation::ControllerModel> model = protocol->makeModel();
  emulation::EmulatedLine line(*model, clock);
  emulation::LineWiring wiring = protocol->wiring;
  wiring.echo = wiring.echo || options.echo;
  line.SetWiring(wiring);
  line.SetFaults(FaultsOf(options));

  if (pipe(stopPipe) != 0) {
    std::perror("pipe");
    return EXIT_LIBRARY_ERROR;
  }
  std::signal(SIGINT, RequestStop);
  std::signal(SIGTERM, RequestStop);
  emulation::PtyHost host(line);
  if (!host.Start()) {
    std::fputs(_("No pseudo-terminal could be created.\n"), stderr);
    return EXIT_LIBRARY_ERROR;
  }
  std::printf("%s\n", host.Path().c_str());
  std::fflush(stdout);
  std::fprintf(stderr, _("Serving the %s controller on %s; Ctrl-C or end of input stops.\n"),
               protocol->name, host.Path().c_str());
  WaitForStop();
  host.Stop();
  return 0;
}

}  // namespace

void AddEmulateCommand(CLI::App& app, const GlobalOptions& global) {
  auto options = std::make_shared<EmulateOptions>();
  CLI::App* command = app.add_subcommand(
      "emulate", _("Serve an emulated controller on a pseudo-terminal and print its path"));
  command->add_option("PROTOCOL", options->protocol, _("Controller to emulate (see --list)"));
  command->add_flag("--list", options->list, _("List the controllers that can be emulated"));
  command->add_flag("--echo", options->echo, _("The line returns every byte sent"));
  command->add_flag("--silent", options->silent, _("Fault: the controller never answers"));
  command->add_option("--late", options->lateMs, _("Fault: every reply starts this many ms late"));
  command->add_option("--byte-gap", options->byteGapMs,
                      _("Fault: ms between two bytes of a reply"));
  command->add_option("--garbage", options->garbage,
                      _("Fault: these bytes come before each reply"));
  command->add_option("--truncate", options->truncateTo,
                      _("Fault: replies cut to this many bytes"));
  command->add_option("--stop-after", options->stopAfter,
                      _("Fault: the controller goes quiet after this many commands"));
  command->callback([options, &global] {
    if (options->list) {
      if (global.json) {
        PrintProtocolsJson();
      } else {
        PrintProtocols(stdout);
      }
      return;
    }
    if (options->protocol.empty()) {
      throw CLI::ValidationError("PROTOCOL", _("name a controller to emulate (see --list)"));
    }
    const int status = Emulate(*options);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace scopemount::cli
