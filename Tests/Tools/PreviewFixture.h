#pragma once

#include "Tests/Tools/CommandRun.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace pavo::test {

// Previews of a camera that is there when the test starts it.
class PreviewTest : public CommandTest {
protected:
    static constexpr std::chrono::seconds kDeadline{60};

    // What it writes goes to files of that name.
    void startCamera(const std::string& name = "camera");
    // Of the test pattern.
    void startProducer();
    // The page's port; 0 where there is no page.
    std::uint16_t startPage(std::vector<std::string> options = {});
    bool waitForText(const std::string& file, const std::string& text) const;
    // What /status.json has under "preview"; null where it does not answer.
    static nlohmann::json previewStatus(std::uint16_t port);

    ChildProcess camera_;
    ChildProcess producer_;
    ChildProcess page_;
};

}  // namespace pavo::test
