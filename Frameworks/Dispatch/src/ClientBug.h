#pragma once

#include "Platform/Support/Fatal.h"

#include <string>
#include <string_view>

namespace dispatch::runtime {

// Ends the process the way the platform does when a rule of this interface is broken.
[[noreturn]] inline void clientBug(std::string_view what, pavo::FatalSite site = pavo::FatalSite::here())
{
    pavo::fatalError("BUG IN CLIENT OF LIBDISPATCH: " + std::string(what), site);
}

}  // namespace dispatch::runtime
