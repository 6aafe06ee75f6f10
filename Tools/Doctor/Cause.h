#pragma once

#include "Tools/Doctor/Examination.h"
#include "Tools/Doctor/Finding.h"

#include <span>
#include <string_view>

namespace pavo::tools {

// One known reason why somebody does not see the camera, or sees it badly. `id` never changes: scripts and
// documents name it.
struct Cause {
    std::string_view id;
    std::string_view symptom;  // what one sees of it
    std::string_view meaning;  // what is wrong then
    std::string_view remedy;   // what to do in general; a finding knows it exactly
    Finding (*check)(Examination& examination);
};

// By neighbourhood.
std::span<const Cause> sessionCauses();
std::span<const Cause> cameraCauses();
std::span<const Cause> pipeWireCauses();
std::span<const Cause> browserCauses();
std::span<const Cause> programCauses();
std::span<const Cause> producerCauses();

}  // namespace pavo::tools
