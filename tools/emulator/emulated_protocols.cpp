#include "emulated_protocols.h"

#include <cstring>

#include "demo_controller.h"
#include "motor_controller_emulator.h"

namespace scopemount::emulation {

namespace {

std::unique_ptr<ControllerModel> MakeDemoController() {
  return std::make_unique<DemoController>();
}

std::unique_ptr<ControllerModel> MakeMotorController() {
  return std::make_unique<MotorControllerEmulator>();
}

const EmulatedProtocol PROTOCOLS[] = {
    {"demo", "demonstration controller of the bench (text commands, no mount uses it)",
     MakeDemoController, LineWiring{}},
    {"motorcontroller", "stepper-motor controller of models 2 to 5 (colon commands, 9600 baud)",
     MakeMotorController, LineWiring{}},
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
