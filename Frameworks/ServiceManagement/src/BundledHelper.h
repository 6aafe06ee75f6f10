#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Failure.h"

namespace pavo::servicemanagement {

// A helper as a bundle carries it, in Contents/Library/LaunchServices: the program <label>, its unit
// <label>.service, and <label>.socket where systemd is to listen for it.
//
// All of it will run as root, so all of it has to be root's: each file, and each folder above it, belongs to
// root and nobody else may write to it. That takes the place of the signatures by which other systems tell
// that a helper is what its maker shipped.
struct BundledHelper {
    std::string service;                // the unit's name
    std::optional<std::string> socket;  // the socket unit's
    std::vector<std::string> unitFiles;
};

// The helper of that label in the main bundle, if it is one that may be installed.
std::variant<BundledHelper, Failure> findBundledHelper(const std::string& label);

}  // namespace pavo::servicemanagement
