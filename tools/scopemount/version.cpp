#include "version.h"

#include <dlfcn.h>

#include <climits>
#include <cstdlib>

#include "commands.h"
#include "format.h"
#include "scopemount.h"
#include "text.h"

namespace scopemount::cli {

namespace {

// The shared library's file is named libscopemount.so.MAJOR.MINOR.PATCH; the
// name the loader found is a link to it.
constexpr const char* SHARED_SUFFIX = ".so.";
constexpr const char* UNKNOWN = "unknown";

}  // namespace

std::string ProgramVersion() { return SCOPEMOUNT_PROGRAM_VERSION; }

std::string LibraryVersion() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ScopeConnect), &info) == 0 || info.dli_fname == nullptr) {
    return UNKNOWN;
  }
  char resolved[PATH_MAX];
  if (realpath(info.dli_fname, resolved) == nullptr) return UNKNOWN;
  const std::string file = resolved;
  const size_t suffix = file.rfind(SHARED_SUFFIX);
  if (suffix == std::string::npos) return UNKNOWN;
  return file.substr(suffix + std::char_traits<char>::length(SHARED_SUFFIX));
}

void AddVersionFlag(CLI::App& app, bool json) {
  app.set_version_flag(
      "--version",
      [json] {
        if (json) {
          return "{\"program\":" + JsonString(ProgramVersion()) +
                 ",\"library\":" + JsonString(LibraryVersion()) + "}";
        }
        return "scopemount " + ProgramVersion() + "\n" + _("library") + " libscopemount " +
               LibraryVersion();
      },
      _("Show the versions of the program and of the library"));
}

}  // namespace scopemount::cli
