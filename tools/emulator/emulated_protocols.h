// The controllers the bench can serve by name (`scopemount emulate <name>`).
// Each protocol adds one entry: its model and how its line is wired.
#pragma once

#include <memory>
#include <span>

#include "controller_model.h"
#include "emulated_line.h"

namespace scopemount::emulation {

struct EmulatedProtocol {
  const char* name;
  const char* description;
  std::unique_ptr<ControllerModel> (*makeModel)();
  LineWiring wiring;
};

std::span<const EmulatedProtocol> EmulatedProtocols();
// Null for an unknown name.
const EmulatedProtocol* FindEmulatedProtocol(const char* name);

}  // namespace scopemount::emulation
