#include "Tests/EndToEnd/CameraProcess.h"

#include "Tests/Support/Patience.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <regex>

namespace pavo::test {

namespace {

std::int64_t now(clockid_t clock)
{
    timespec time{};
    ::clock_gettime(clock, &time);
    return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

// The log's time is of the wall clock, a frame's is not. Asked again where something came between the
// questions.
std::int64_t wallClockOffset()
{
    constexpr std::int64_t kMomentNs = 20'000;
    for (;;) {
        const std::int64_t before = now(CLOCK_MONOTONIC);
        const std::int64_t wall = now(CLOCK_REALTIME);
        const std::int64_t after = now(CLOCK_MONOTONIC);
        if (after - before < kMomentNs) return wall - before;
    }
}

// As in 2026-01-31T23:59:59.123456Z 4711 Error [subsystem:category] text
std::optional<LogLine> parseLogLine(const std::string& line)
{
    static const std::regex pattern(
        R"((\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)\.(\d{6})Z \d+ (\w+) \[[^\]:]*:([^\]]*)\] (.*))");
    std::smatch parts;
    if (!std::regex_match(line, parts, pattern)) return std::nullopt;
    tm utc{};
    ::strptime(parts[1].str().c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    const std::int64_t wallNs = ::timegm(&utc) * 1'000'000'000LL + std::stoll(parts[2].str()) * 1000;
    // Nobody sets the test's own wall clock.
    static const std::int64_t offsetNs = wallClockOffset();
    return LogLine{wallNs - offsetNs, parts[3].str(), parts[4].str(), parts[5].str()};
}

}  // namespace

const std::vector<LogLine>& CameraProcess::log()
{
    const auto& lines = texts();
    for (; textsRead_ < lines.size(); ++textsRead_)
        if (auto line = parseLogLine(lines[textsRead_])) log_.push_back(std::move(*line));
    return log_;
}

std::size_t CameraProcess::countOf(const std::string& text)
{
    const auto& lines = log();
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(), [&text](const auto& line) { return line.text == text; }));
}

std::size_t CameraProcess::countWith(const std::string& part)
{
    const auto& lines = log();
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&part](const auto& line) {
        return line.text.find(part) != std::string::npos;
    }));
}

bool CameraProcess::waitForLog(const std::string& text, std::size_t count)
{
    return eventually([&] { return countOf(text) >= count; });
}

}  // namespace pavo::test
