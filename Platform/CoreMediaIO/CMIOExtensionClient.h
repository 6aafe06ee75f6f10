#pragma once

#include "Platform/Foundation/NSUUID.h"

#include <cstdint>

namespace cmio {

// One process that uses the camera.
struct ExtensionClient {
    ns::UUID clientID;
    std::int32_t pid = 0;

    bool operator==(const ExtensionClient&) const = default;
};

}  // namespace cmio
