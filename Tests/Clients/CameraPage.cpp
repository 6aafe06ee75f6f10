#include "Tests/Clients/CameraPage.h"

#include "Tests/Support/Patience.h"

#include <algorithm>

namespace pavo::test {

CameraPage::CameraPage() : server_({PAVO_CAMERA_PAGE, pictures_.path()}, PAVO_PYTHON) {}

std::string CameraPage::url()
{
    eventually([this] { return !server_.lastReport("serving").is_null(); });
    const auto serving = server_.lastReport("serving");
    if (serving.is_null()) return {};
    return "http://127.0.0.1:" + std::to_string(serving.value("port", 0)) + "/";
}

nlohmann::json CameraPage::waitUntilOpened()
{
    eventually([this] {
        return !server_.lastReport("opened").is_null() || !server_.lastReport("failed").is_null();
    });
    return server_.lastReport("opened");
}

CameraPage::Seen CameraPage::waitForSeen(const std::function<bool(const Seen&)>& isWanted,
                                         const std::function<bool()>& isHopeless)
{
    const auto framesOf = [](const nlohmann::json& report) {
        return report.is_null() ? std::uint64_t{0} : report.value("frames", std::uint64_t{0});
    };
    std::uint64_t known = framesOf(server_.lastReport("seen"));
    Seen seen;
    bool isFound = false;
    eventually([&] {
        const auto report = server_.lastReport("seen");
        if (framesOf(report) == known) return isHopeless();
        known = framesOf(report);
        seen = {known, report.value("timeMs", 0.0), report.value("width", 0), report.value("height", 0), {}};
        if (auto picture = readPicture(report.value("picture", ""))) seen.picture = std::move(*picture);
        return isFound = isWanted(seen);
    });
    return isFound ? seen : Seen{};
}

std::vector<std::string> CameraPage::story()
{
    std::vector<std::string> story = server_.story();
    std::erase(story, "seen");
    return story;
}

}  // namespace pavo::test
