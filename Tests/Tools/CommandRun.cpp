#include "Tests/Tools/CommandRun.h"

#include <stdlib.h>

#include <sstream>

namespace pavo::test {

namespace {

// Sanitizers make them slow to start.
constexpr std::chrono::seconds kDeadline(60);

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

}  // namespace

std::vector<std::string> CommandResult::errorLines() const
{
    return linesOf(err);
}

std::vector<nlohmann::json> CommandResult::events() const
{
    std::vector<nlohmann::json> events;
    for (const auto& line : linesOf(out)) {
        auto event = nlohmann::json::parse(line, nullptr, false);
        EXPECT_TRUE(event.is_object() && event.contains("event")) << line;
        if (event.is_object()) events.push_back(std::move(event));
    }
    return events;
}

CommandTest::CommandTest()
{
    for (const char* name : {"HOME", "XDG_RUNTIME_DIR", "PAVO_BOOTSTRAP_DIR"})
        ::setenv(name, folder_.path().c_str(), 1);
    for (const char* name : {"PIPEWIRE_REMOTE", "PIPEWIRE_RUNTIME_DIR"})
        ::unsetenv(name);
    ::setenv("PAVO_PIPEWIRE", "embedded", 1);
    ::setenv("PAVO_LOG", "stderr", 1);
}

ChildProcess CommandTest::start(const std::string& name, const std::vector<std::string>& arguments,
                                const std::string& input) const
{
    std::vector<std::string> words = {"sh",
                                      "-c",
                                      R"(out=$1 err=$2 in=$3; shift 3; exec "$@" >"$out" 2>"$err" <"$in")",
                                      "sh",
                                      path(name + ".out"),
                                      path(name + ".err"),
                                      input.empty() ? "/dev/null" : input,
                                      PAVO_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return ChildProcess(words);
}

CommandResult CommandTest::resultOf(const std::string& name, ChildProcess& process) const
{
    CommandResult result;
    result.exitCode = process.waitForExit(kDeadline);
    result.out = readFile(path(name + ".out"));
    result.err = readFile(path(name + ".err"));
    return result;
}

CommandResult CommandTest::run(const std::vector<std::string>& arguments, const std::string& input) const
{
    auto process = start("command", arguments, input);
    return resultOf("command", process);
}

}  // namespace pavo::test
