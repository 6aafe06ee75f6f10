#include "Tests/Helper/HelperProcess.h"

#include "Tests/Support/Wait.h"

#include <chrono>
#include <sstream>

namespace pavo::test {

namespace {

constexpr std::chrono::seconds kPatience(40);

std::vector<std::string> commandLine(const std::string& behaviour, const std::string& version)
{
    std::vector<std::string> arguments = {PAVO_REFERENCE_HELPER, behaviour};
    if (!version.empty()) arguments.push_back(version);
    return arguments;
}

}  // namespace

HelperProcess::HelperProcess(const std::string& behaviour, const std::string& version)
    : process_(commandLine(behaviour, version), output()),
      isReady_(waitFor([this] { return readFile(output()).starts_with("ready\n"); }, kPatience))
{}

std::vector<std::string> HelperProcess::calls() const
{
    std::istringstream text(readFile(output()));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        if (line != "ready") lines.push_back(line);
    return lines;
}

bool HelperProcess::waitForCalls(std::size_t count) const
{
    return waitFor([&] { return calls().size() >= count; }, kPatience);
}

}  // namespace pavo::test
