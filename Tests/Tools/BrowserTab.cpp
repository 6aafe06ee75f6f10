#include "Tests/Tools/BrowserTab.h"

#include "Tests/Support/Wait.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>

namespace pavo::test {

namespace {

using nlohmann::json;

constexpr std::chrono::seconds kDeadline(60);

std::string fromBase64(const std::string& text)
{
    static const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint32_t value = 0;
    int bits = 0;
    for (const char c : text) {
        const auto digit = digits.find(c);
        if (digit == std::string::npos) break;
        value = value << 6 | static_cast<std::uint32_t>(digit);
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        bytes.push_back(static_cast<char>(value >> bits));
    }
    return bytes;
}

}  // namespace

std::string BrowserTab::program()
{
    for (const char* name : {"chromium", "chromium-browser", "google-chrome"})
        if (isOnPath(name)) return name;
    return {};
}

BrowserTab::BrowserTab(const std::string& folder)
{
    // The browser reads commands from descriptor 3 and answers on 4.
    const std::string commands = folder + "/commands", answers = folder + "/answers";
    ::mkfifo(commands.c_str(), 0600);
    ::mkfifo(answers.c_str(), 0600);
    // Opened for both directions, so that nobody waits for the other side.
    input_ = UniqueFd(::open(commands.c_str(), O_RDWR | O_CLOEXEC));
    output_ = UniqueFd(::open(answers.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    process_ =
        ChildProcess({"sh", "-c", R"(commands=$1 answers=$2; shift 2; exec "$@" 3<"$commands" 4>"$answers")",
                      "sh", commands, answers, program(), "--headless=new", "--no-sandbox",
                      "--remote-debugging-pipe", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                      "--user-data-dir=" + folder + "/browser"},
                     folder + "/browser.log");
    const auto target = call("Target.createTarget", {{"url", "about:blank"}});
    if (!target.contains("targetId")) return;
    session_ = call("Target.attachToTarget", {{"targetId", target["targetId"]}, {"flatten", true}})
                   .value("sessionId", std::string());
}

json BrowserTab::call(const std::string& method, json parameters)
{
    json request = {{"id", ++lastId_}, {"method", method}, {"params", std::move(parameters)}};
    if (!session_.empty()) request["sessionId"] = session_;
    const std::string text = request.dump() + '\0';
    if (::write(input_.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) return {};
    json result;
    waitFor(
        [&] {
            pollfd waiting{output_.get(), POLLIN, 0};
            ::poll(&waiting, 1, 100);
            std::array<char, 65536> buffer{};
            const ssize_t count = ::read(output_.get(), buffer.data(), buffer.size());
            if (count > 0) received_.append(buffer.data(), static_cast<std::size_t>(count));
            std::size_t end = 0;
            while ((end = received_.find('\0')) != std::string::npos) {
                const auto message = json::parse(received_.substr(0, end), nullptr, false);
                received_.erase(0, end + 1);
                // Others are events, which nobody asked for.
                if (!message.is_object() || message.value("id", 0) != lastId_) continue;
                result = message.value("result", json::object());
                return true;
            }
            return !process_.isRunning();
        },
        kDeadline);
    return result;
}

void BrowserTab::resize(int width, int height)
{
    call("Emulation.setDeviceMetricsOverride",
         {{"width", width}, {"height", height}, {"deviceScaleFactor", 1}, {"mobile", false}});
}

void BrowserTab::setColorScheme(const std::string& scheme)
{
    call("Emulation.setEmulatedMedia",
         {{"features", json::array({{{"name", "prefers-color-scheme"}, {"value", scheme}}})}});
}

void BrowserTab::open(const std::string& address)
{
    call("Page.navigate", {{"url", address}});
}

json BrowserTab::evaluate(const std::string& expression)
{
    const auto answer = call("Runtime.evaluate", {{"expression", expression}, {"returnByValue", true}});
    if (!answer.is_object() || !answer.contains("result")) return {};
    return answer["result"].value("value", json());
}

bool BrowserTab::waitUntil(const std::string& expression)
{
    return waitFor([&] { return evaluate(expression) == true; }, kDeadline);
}

std::string BrowserTab::screenshot()
{
    return fromBase64(call("Page.captureScreenshot", {{"format", "png"}}).value("data", std::string()));
}

}  // namespace pavo::test
