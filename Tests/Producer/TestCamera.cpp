// A process with the camera's end of the frame service, to be killed. Wants frames from the beginning. Writes
// "ready" when producers may dial, "frame at <rate>" with the first frame, and "many" at the hundredth.
#include "Tests/Producer/CameraDouble.h"
#include "Tests/Support/Wait.h"

#include <os/log_printf.h>

#include <chrono>
#include <cstdio>
#include <string>

int main(int argc, char** argv)
{
    if (argc != 2) return 2;
    os_log_set_standard_error_fallback(false);
    const auto camera = pavo::test::CameraDouble::create(argv[1]);
    camera->setSubscribed(true);
    const auto write = [](const std::string& line) {
        std::puts(line.c_str());
        std::fflush(stdout);
    };
    const auto waitForFrames = [&camera](std::uint64_t count) {
        return pavo::test::waitFor([&camera, count] { return camera->frameCount() >= count; },
                                   std::chrono::hours(1));
    };
    write("ready");
    // The rate is told before any frame is sent.
    if (waitForFrames(1)) write("frame at " + std::to_string(static_cast<int>(camera->rates().back())));
    if (waitForFrames(100)) write("many");
    pavo::test::waitFor([] { return false; }, std::chrono::hours(1));
    return 0;
}
