#pragma once

#include "Tools/CameraStatus.h"
#include "Tools/Result.h"

#include <chrono>

namespace pavo::tools {

// Asks the camera that runs for this user how it is. Waits for its answer as long as `patience` lasts:
// a camera that runs answers at once.
//
// Threads: any, but no queue of a connection. Starts threads of its own, so a StopSignal comes before it.
// Errors:  a sentence that says whether there is no camera, or one that does not answer, and what to do.
Result<CameraStatus> askForStatus(std::chrono::milliseconds patience = std::chrono::seconds(5));

}  // namespace pavo::tools
