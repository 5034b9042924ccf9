// Each subcommand of the program adds itself to the application here.
#pragma once

#include <CLI/CLI.hpp>

namespace scopemount::cli {

struct GlobalOptions;

void AddModelsCommand(CLI::App& app);
void AddCodesCommand(CLI::App& app);
void AddSiderealTimeCommand(CLI::App& app);
void AddSeparationCommand(CLI::App& app);
void AddEmulateCommand(CLI::App& app);
// The planetarium server; sets `exitStatus` when it ends.
void AddServeCommand(CLI::App& app, GlobalOptions& options, int& exitStatus);

// Adds the mount commands and the global options (model, port, site, JSON,
// alignment record), parses, runs; with no command, a short simulated
// session. Returns the exit status.
int RunProgram(CLI::App& app, int argc, char** argv);

}  // namespace scopemount::cli
