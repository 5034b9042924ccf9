// Each subcommand of the program adds itself to the application here.
#pragma once

#include <CLI/CLI.hpp>

namespace scopemount::cli {

void AddModelsCommand(CLI::App& app);
void AddCodesCommand(CLI::App& app);
void AddSiderealTimeCommand(CLI::App& app);
void AddSeparationCommand(CLI::App& app);
void AddEmulateCommand(CLI::App& app);

// What the program does when no subcommand is given.
int RunDefault();

}  // namespace scopemount::cli
