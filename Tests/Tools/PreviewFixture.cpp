#include "Tests/Tools/PreviewFixture.h"

#include "Tests/Support/Wait.h"
#include "Tests/Tools/HttpClient.h"

namespace pavo::test {

void PreviewTest::startCamera(const std::string& name)
{
    camera_ = start(name, {"camera", "--json"});
    ASSERT_TRUE(waitForText(name + ".out", "\"started\"")) << readFile(path(name + ".err"));
}

void PreviewTest::startProducer()
{
    producer_ = start("send", {"send", "--json", "--size", "1280x720", "--fps", "30"});
    ASSERT_TRUE(waitForText("send.out", "\"connected\"")) << readFile(path("send.err"));
}

std::uint16_t PreviewTest::startPage(std::vector<std::string> options)
{
    options.insert(options.begin(), {"preview", "--http", "--port", "0", "--json"});
    page_ = start("page", options);
    if (!waitForText("page.out", "}\n")) return 0;
    const auto event = nlohmann::json::parse(readFile(path("page.out")), nullptr, false);
    return event.is_object() ? event.value("port", std::uint16_t{0}) : std::uint16_t{0};
}

bool PreviewTest::waitForText(const std::string& file, const std::string& text) const
{
    return waitFor([&] { return readFile(path(file)).find(text) != std::string::npos; }, kDeadline);
}

nlohmann::json PreviewTest::previewStatus(std::uint16_t port)
{
    const auto all = nlohmann::json::parse(ask(port, "GET", "/status.json").body, nullptr, false);
    return all.is_object() ? all.value("preview", nlohmann::json()) : nlohmann::json();
}

}  // namespace pavo::test
