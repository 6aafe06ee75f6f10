#pragma once

#include "Platform/Foundation/NSError.h"
#include "Platform/Support/Fatal.h"

#include <string>

namespace pavo {

// Ends the process for an error that cannot happen in a sound installation.
[[noreturn]] inline void unexpectedError(const ns::Error& error, FatalSite site)
{
    fatalError("Unexpectedly raised an error: " + error.domain + " " + std::to_string(error.code), site);
}

}  // namespace pavo
