#pragma once

#include "Platform/Foundation/NSProcessInfo.h"

#include <string_view>

namespace ns {

// The version under VERSION_ID in the text of an os-release file: up to three numbers with points between, in
// quotation marks or not. Zeros where there is none.
OperatingSystemVersion versionFromOSRelease(std::string_view text);

}  // namespace ns
