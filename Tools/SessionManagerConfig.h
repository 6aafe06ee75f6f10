#pragma once

#include <string>

namespace pavo::tools {

// Writes, under `configHome` (an XDG_CONFIG_HOME), what a private WirePlumber has to leave alone: the
// machine's sound cards, cameras and Bluetooth belong to the user's own session. The last one also needs
// systemd-logind, without which, as in a container, WirePlumber ends at once. False when the files cannot be
// written.
bool writeSessionManagerConfig(const std::string& configHome);

}  // namespace pavo::tools
