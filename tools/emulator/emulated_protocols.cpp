#include "emulated_protocols.h"

#include <cstring>

#include "compact_controller.h"
#include "demo_controller.h"

namespace scopemount::emulation {

namespace {

std::unique_ptr<ControllerModel> MakeCompactController() {
  return std::make_unique<CompactController>();
}

std::unique_ptr<ControllerModel> MakeDemoController() {
  return std::make_unique<DemoController>();
}

const EmulatedProtocol PROTOCOLS[] = {
    {"demo", "demonstration controller of the bench (text commands, no mount uses it)",
     MakeDemoController, LineWiring{}},
    {"compact", "compact Alt/Az mount board (models 8 to 11; either size, told at start-up)",
     MakeCompactController, LineWiring{}},
};

}  // namespace

std::span<const EmulatedProtocol> EmulatedProtocols() { return PROTOCOLS; }

const EmulatedProtocol* FindEmulatedProtocol(const char* name) {
  if (name == nullptr) return nullptr;
  for (const EmulatedProtocol& protocol : PROTOCOLS) {
    if (std::strcmp(protocol.name, name) == 0) return &protocol;
  }
  return nullptr;
}

}  // namespace scopemount::emulation
