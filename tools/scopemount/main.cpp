// scopemount: the command-line face of the library. It uses nothing but the
// public C header, like any application would.
#include "commands.h"

int main(int argc, char** argv) {
  CLI::App app{"scopemount: drive a motorised telescope mount.\n"
               "With no command: a short session on the Alt/Az simulator."};
  app.require_subcommand(0, 1);
  // Site, model and output options may follow the command too.
  app.fallthrough();
  scopemount::cli::AddModelsCommand(app);
  scopemount::cli::AddCodesCommand(app);
  scopemount::cli::AddSiderealTimeCommand(app);
  scopemount::cli::AddSeparationCommand(app);
  scopemount::cli::AddEmulateCommand(app);
  return scopemount::cli::RunProgram(app, argc, argv);
}
