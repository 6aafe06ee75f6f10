#pragma once

#include "Tools/CameraStatus.h"
#include "Tools/Result.h"

namespace pavo::tools {

// Asks the camera that runs for this user how it is. Waits for its answer, but not for ever: a camera that
// runs answers at once.
//
// Threads: any, but no queue of a connection. Starts threads of its own, so a StopSignal comes before it.
// Errors:  a sentence that says whether there is no camera, or one that does not answer, and what to do.
Result<CameraStatus> askForStatus();

}  // namespace pavo::tools
