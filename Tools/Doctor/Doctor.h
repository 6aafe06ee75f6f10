#pragma once

#include "Tools/Doctor/Cause.h"

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace pavo::tools {

// All causes, in the order in which they are best put right.
std::vector<Cause> allCauses();

struct Diagnosis {
    struct Entry {
        Cause cause;
        Finding finding;
    };
    std::vector<Entry> entries;  // problems first, then hints, then what cannot be told

    std::size_t count(Verdict verdict) const;
    const Finding& of(std::string_view id) const;
};

// Looks for every cause. Changes nothing.
Diagnosis diagnose(const System& system);

// For people: a line for each cause, what to do below, and a last line that sums up.
std::string asText(const Diagnosis& diagnosis);
std::string asText(const std::vector<Cause>& causes);
// For programs: an object for each.
std::vector<nlohmann::json> asEvents(const Diagnosis& diagnosis);
std::vector<nlohmann::json> asEvents(const std::vector<Cause>& causes);

}  // namespace pavo::tools
