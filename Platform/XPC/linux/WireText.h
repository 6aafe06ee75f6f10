#pragma once

#include "Platform/XPC/XPCArgument.h"

#include <span>
#include <string_view>

namespace xpc {

// Whether D-Bus has a form for the text: UTF-8 without zero bytes.
bool isWireText(std::string_view text);

// Whether a message can carry these values: their texts are texts, and there is room. Surfaces are not asked.
bool canTravel(std::span<const Argument> arguments);

}  // namespace xpc
