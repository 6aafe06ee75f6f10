#pragma once

#include <functional>
#include <string>

namespace pavo {

// Loads the bundle folder, creates its entry point, starts it, and waits until the process is told to end
// (SIGTERM, SIGINT). Knows nothing of what the bundle does.
//
// `started` is called once the camera is published. The result is the process's exit code: 0 after a signal,
// 1 where the bundle cannot be loaded, with one line on standard error that says why. Both signals must be
// unblocked and are blocked in the whole process from here on, so call it before a thread is made.
int runStub(const std::string& bundlePath, const std::function<void()>& started);

}  // namespace pavo
