#pragma once

#include "Tests/MacOS/Doubles/Calls.h"
#include "Tests/MacOS/Doubles/CoreImageDouble.h"
#include "Tests/MacOS/Doubles/CoreMediaIODouble.h"
#include "Tests/MacOS/Doubles/FoundationDouble.h"
#include "Tests/MacOS/Doubles/SystemDouble.h"
#include "Tests/MacOS/Doubles/XPCDouble.h"
#include "Tests/MacOS/Runtime/Runtime.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

// Every test of this program, with this fixture or without, starts with nothing recorded and with a pool of
// its own, and at its end every Objective-C object that it made must be gone.
namespace pavo::test {

using AdapterTest = testing::Test;
using Strings = std::vector<std::string>;

std::set<std::string> textsIn(NSSet* strings);

}  // namespace pavo::test
