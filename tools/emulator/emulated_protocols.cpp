#include "emulated_protocols.h"

#include <cstring>

#include "aux_bus_controllers.h"
#include "demo_controller.h"

namespace scopemount::emulation {

namespace {

std::unique_ptr<ControllerModel> MakeAuxBusControllers() {
  return std::make_unique<AuxBusControllers>();
}

std::unique_ptr<ControllerModel> MakeDemoController() {
  return std::make_unique<DemoController>();
}

const EmulatedProtocol PROTOCOLS[] = {
    {"demo", "demonstration controller of the bench (text commands, no mount uses it)",
     MakeDemoController, LineWiring{}},
    {"auxbus", "two motor controllers on one echoing AUX bus (models 0 and 1), 19200 baud",
     MakeAuxBusControllers, LineWiring{.echo = true, .rtsLoopsToCts = true}},
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
