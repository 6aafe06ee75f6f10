#pragma once

#include "Tests/Clients/ClientPicture.h"
#include "Tests/EndToEnd/PavoProcess.h"
#include "Tests/Support/Descriptors.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace pavo::test {

// A web site of one page, on this machine only. The page opens the camera once, shows it and reports what it
// sees.
//
// Threads: for one thread, the test's own.
class CameraPage {
public:
    // What the page saw some time after the report before.
    struct Seen {
        std::uint64_t frames = 0;  // shown since the camera was opened
        double timeMs = 0;         // when the last of them was shown
        int width = 0;             // of the video, not of the picture
        int height = 0;
        ClientPicture picture;
    };

    CameraPage();

    // Empty where the site does not come up.
    std::string url();
    // The browser's facts about the camera once the page has opened it; null when it has not in time.
    nlohmann::json waitUntilOpened();
    // Waits for a report, made from now on, that `isWanted`. Without frames when there is none in time, or
    // none to wait for any more.
    Seen waitForSeen(
        const std::function<bool(const Seen&)>& isWanted,
        const std::function<bool()>& isHopeless = [] { return false; });
    // Everything that the page reported but what it saw.
    std::vector<std::string> story();

private:
    TemporaryFolder pictures_;
    PavoProcess server_;
};

}  // namespace pavo::test
