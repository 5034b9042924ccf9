// `models` and `codes`: what the library knows, in the user's language.
#include <cstdio>
#include <string>

#include "commands.h"
#include "format.h"
#include "scopemount.h"
#include "session.h"
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

// Which controller protocol each hardware model speaks, by the name
// `scopemount emulate` serves it under; models between two entries share the
// earlier one's.
struct ProtocolOfModels {
  int32_t firstModel;
  const char* emulated;
};
constexpr ProtocolOfModels HARDWARE_PROTOCOLS[] = {
    {0, "auxbus"},
    {2, "motorcontroller"},
    {8, "compact"},
};

const char* EmulatedProtocolOf(int32_t model) {
  const char* protocol = nullptr;
  for (const ProtocolOfModels& entry : HARDWARE_PROTOCOLS) {
    if (model >= entry.firstModel) protocol = entry.emulated;
  }
  return protocol;
}

// Every model has a driver: the simulators run on their own, the others on
// a serial line (a real controller or its emulation).
std::string HowToConnect(int32_t model) {
  if (IsSimulator(model)) return _("simulator, no --port");
  return std::string(_("--port DEVICE (emulate ")) + EmulatedProtocolOf(model) + ")";
}

std::string ModelJson(int32_t model) {
  const bool simulator = IsSimulator(model);
  return "{\"model\":" + std::to_string(model) + ",\"name\":" + JsonString(ModelName(model)) +
         ",\"works\":true,\"simulator\":" + (simulator ? "true" : "false") +
         ",\"needsPort\":" + (simulator ? "false" : "true") + ",\"emulate\":" +
         (simulator ? "null" : JsonString(EmulatedProtocolOf(model))) + "}";
}

void PrintModels(bool json) {
  for (int32_t model = 0; model < SCOPE_MODEL_COUNT; ++model) {
    if (json) {
      std::printf("%s\n", ModelJson(model).c_str());
    } else {
      std::printf("%2d  %s %s\n", model, PadToColumns(HowToConnect(model), 40).c_str(),
                  ModelName(model).c_str());
    }
  }
}

void PrintCodes(bool json) {
  for (int32_t code : RESULT_CODES) {
    // The library has no text for success; say it plainly.
    const std::string text = code == SCOPE_OK ? _("OK") : ErrorMessage(code);
    if (json) {
      std::printf("{\"code\":%d,\"message\":%s}\n", code, JsonString(text).c_str());
    } else {
      std::printf("%3d  %s\n", code, text.c_str());
    }
  }
}

}  // namespace

void AddModelsCommand(CLI::App& app, const GlobalOptions& options) {
  app.add_subcommand("models",
                     _("List the mount models (in the current language) and how to connect each"))
      ->callback([&options] { PrintModels(options.json); });
}

void AddCodesCommand(CLI::App& app, const GlobalOptions& options) {
  app.add_subcommand("codes", _("List the result codes and their messages"))->callback([&options] {
    PrintCodes(options.json);
  });
}

}  // namespace scopemount::cli
