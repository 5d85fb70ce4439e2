// Starts the statically linked module on a reference host, as a host loading it
// does; with the noise registered, the host then hands its noise buffer over
// through the (now patched) 'core' slot 3.
#pragma once

#include <gtest/gtest.h>

#include "refhost/refhost.h"

// The module's only export, linked in statically.
extern "C" int32_t PluginMain(int16_t selector, tarnell::HostInfo* hostInfo, intptr_t data, int16_t* result);

namespace tarnell::tests {

enum class Noise { Skip, Register };

inline void startModule(refhost::ReferenceHost& host, Noise noise = Noise::Skip) {
  int16_t result = 1;
  PluginMain(kSelectorStartup, host.hostInfo(), 0, &result);
  ASSERT_EQ(result, 0);
  if (noise == Noise::Register) host.registerNoise();
}

}  // namespace tarnell::tests
