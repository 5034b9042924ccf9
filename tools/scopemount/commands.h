// Each subcommand of the program adds itself to the application here.
#pragma once

#include <CLI/CLI.hpp>

namespace scopemount::cli {

struct GlobalOptions;

// The options are read when the command runs, after parsing (--json).
// --version: the program's and the library's, as JSON with `json`.
void AddVersionFlag(CLI::App& app, bool json);
void AddModelsCommand(CLI::App& app, const GlobalOptions& options);
void AddCodesCommand(CLI::App& app, const GlobalOptions& options);
void AddSiderealTimeCommand(CLI::App& app);
void AddSeparationCommand(CLI::App& app);
void AddEmulateCommand(CLI::App& app, const GlobalOptions& options);
// The planetarium server; sets `exitStatus` when it ends.
void AddServeCommand(CLI::App& app, GlobalOptions& options, int& exitStatus);

// Adds every command and the global options (model, port, site, JSON,
// alignment record), parses, runs; with no command, a short simulated
// session. Returns the exit status.
int RunProgram(int argc, char** argv);

}  // namespace scopemount::cli
