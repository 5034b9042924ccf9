// scopemount: the command-line face of the library. It uses nothing but the
// public C header, like any application would.
#include <cstdio>

#include "commands.h"
#include "scopemount.h"
#include "text.h"

namespace scopemount::cli {

int RunDefault() {
  std::puts("scopemount: drive a motorised telescope mount.\n");
  std::puts("Mount models:");
  for (int32_t model = 0; model < SCOPE_MODEL_COUNT; ++model) {
    std::printf("  %2d  %s\n", model, ModelName(model).c_str());
  }
  std::puts("\nTry: scopemount sidereal-time, scopemount separation 0 0 90 0,"
            " scopemount codes, scopemount --help");
  return 0;
}

}  // namespace scopemount::cli

int main(int argc, char** argv) {
  CLI::App app{"scopemount: drive a motorised telescope mount"};
  app.require_subcommand(0, 1);
  scopemount::cli::AddModelsCommand(app);
  scopemount::cli::AddCodesCommand(app);
  scopemount::cli::AddSiderealTimeCommand(app);
  scopemount::cli::AddSeparationCommand(app);
  scopemount::cli::AddEmulateCommand(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  }
  if (app.get_subcommands().empty()) return scopemount::cli::RunDefault();
  return 0;
}
