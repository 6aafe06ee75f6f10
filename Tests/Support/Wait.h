#pragma once

#include <chrono>
#include <functional>

namespace pavo::test {

// Waits until `condition` holds, looking again every millisecond. False when the deadline passes first.
bool waitFor(const std::function<bool()>& condition,
             std::chrono::milliseconds deadline = std::chrono::seconds(10));

}  // namespace pavo::test
