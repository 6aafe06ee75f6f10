#pragma once

#include <CoreFoundation/CFBase.h>

#include <string>

namespace pavo::servicemanagement {

// Why a helper was not installed: a code of <ServiceManagement/ServiceManagement.h>, and a text for people.
struct Failure {
    CFIndex code = 0;
    std::string text;
};

}  // namespace pavo::servicemanagement
