#pragma once

#include "Tests/Support/Wait.h"

#include <chrono>

namespace pavo::test {

// How long a test waits for what is sure to come. Far more than any of it takes: the machine may be busy, and
// sanitizers make everything slow.
inline constexpr std::chrono::seconds kPatience(40);

template <typename Condition>
bool eventually(Condition condition)
{
    return waitFor(condition, kPatience);
}

}  // namespace pavo::test
