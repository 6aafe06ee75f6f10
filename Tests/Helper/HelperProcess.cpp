#include "Tests/Helper/HelperProcess.h"

#include "Tests/Support/Patience.h"

#include <sstream>

namespace pavo::test {

namespace {

std::vector<std::string> commandLine(const std::string& behaviour, const std::string& version)
{
    std::vector<std::string> arguments = {PAVO_REFERENCE_HELPER, behaviour};
    if (!version.empty()) arguments.push_back(version);
    return arguments;
}

}  // namespace

HelperProcess::HelperProcess(const std::string& behaviour, const std::string& version)
    : process_(commandLine(behaviour, version), output()),
      isReady_(eventually([this] { return readFile(output()).starts_with("ready\n"); }))
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
    return eventually([&] { return calls().size() >= count; });
}

}  // namespace pavo::test
