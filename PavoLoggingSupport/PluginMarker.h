#pragma once

#include "Platform/Foundation/NSBundle.h"

namespace pavo {

// A class object without a class: its place in this module's image is how the bundle that contains the
// logging code is found.
const ns::Class& pluginMarkerClass();

}  // namespace pavo
