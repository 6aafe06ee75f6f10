#pragma once

#include <string>
#include <string_view>

namespace pavo::security {

// The polkit action that stands for a right of the platform's; empty for a right that has none here. An
// action is a promise of a policy file, which comes with this framework (linux/*.policy).
inline std::string actionForRight(std::string_view right)
{
    if (right == "com.apple.ServiceManagement.blesshelper") return "com.tarnwell.macos.cam.bless-helper";
    return {};
}

}  // namespace pavo::security
