// `models` and `codes`: what the library knows, in the user's language.
#include <cstdio>

#include "commands.h"
#include "scopemount.h"
#include "text.h"

namespace scopemount::cli {

namespace {

constexpr int32_t RESULT_CODES[] = {
    SCOPE_OK,
    SCOPE_INVALID_MOUNT_ID,
    SCOPE_ALREADY_CONNECTED,
    SCOPE_NOT_CONNECTED,
    SCOPE_INVALID_PARAMETER,
    SCOPE_SERIAL_PORT_BUSY,
    SCOPE_NO_RESPONSE_AXIS1,
    SCOPE_NO_RESPONSE_AXIS2,
    SCOPE_AXIS_BUSY,
    SCOPE_TARGET_TOO_HIGH,
    SCOPE_TARGET_TOO_LOW,
    SCOPE_USER_INTERRUPT,
    SCOPE_ALIGN_FAILED,
    SCOPE_NOT_IMPLEMENTED,
    SCOPE_INVALID_ALIGNMENT_DATA,
};

void PrintModels() {
  for (int32_t model = 0; model < SCOPE_MODEL_COUNT; ++model) {
    std::printf("%2d  %s\n", model, ModelName(model).c_str());
  }
}

void PrintCodes() {
  for (int32_t code : RESULT_CODES) {
    // The library has no text for success; say it plainly.
    const std::string text = code == SCOPE_OK ? "OK" : ErrorMessage(code);
    std::printf("%3d  %s\n", code, text.c_str());
  }
}

}  // namespace

void AddModelsCommand(CLI::App& app) {
  app.add_subcommand("models", "List the mount models (in the current language)")
      ->callback(PrintModels);
}

void AddCodesCommand(CLI::App& app) {
  app.add_subcommand("codes", "List the result codes and their messages")->callback(PrintCodes);
}

}  // namespace scopemount::cli
