// Runs a command on a machine with virtual devices in its USB ports, or serves them over USB/IP.
#pragma once

#include "virtual/plug/device_set.h"

namespace qaven::virtual_plug {

// The whole program: reads the command line, sets the stage, runs the command. Returns the exit
// status.
int launch(int argc, char** argv, const DeviceFactory& factory);

} // namespace qaven::virtual_plug
