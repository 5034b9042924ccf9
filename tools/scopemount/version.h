// What `--version` tells: this program's version and that of the library it
// runs with, which may have been installed apart from it.
#pragma once

#include <string>

namespace scopemount::cli {

std::string ProgramVersion();
// Read from the name of the shared library in use ("unknown" when it
// cannot be told, e.g. when linked statically).
std::string LibraryVersion();

}  // namespace scopemount::cli
