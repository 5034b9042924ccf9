#include "emulated_protocols.h"

#include <cstring>

#include "aux_bus_controllers.h"
#include "compact_controller.h"
#include "demo_controller.h"
#include "motor_controller_emulator.h"

namespace scopemount::emulation {

namespace {

template <typename Controller>
std::unique_ptr<ControllerModel> Make() {
  return std::make_unique<Controller>();
}

// Marks a description for the program's catalogues, which translate it
// when it is shown.
constexpr const char* N_(const char* text) { return text; }

const EmulatedProtocol PROTOCOLS[] = {
    {"demo", N_("demonstration controller of the bench (text commands, no mount uses it)"),
     Make<DemoController>, LineWiring{}},
    {"auxbus", N_("two motor controllers on one echoing AUX bus (models 0 and 1), 19200 baud"),
     Make<AuxBusControllers>, LineWiring{.echo = true, .rtsLoopsToCts = true}},
    {"compact", N_("compact Alt/Az mount board (models 8 to 11; either size, told at start-up)"),
     Make<CompactController>, LineWiring{}},
    {"motorcontroller", N_("stepper-motor controller of models 2 to 5 (colon commands, 9600 baud)"),
     Make<MotorControllerEmulator>, LineWiring{}},
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
