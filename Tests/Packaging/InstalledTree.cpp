#include "Tests/Packaging/InstalledTree.h"

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"

#include <regex>
#include <sstream>

namespace pavo::test::installed {

namespace fs = std::filesystem;

fs::path prefix()
{
    return fs::path(PAVO_INSTALL_ROOT PAVO_INSTALL_PREFIX);
}

std::string pavo()
{
    return prefix() / "bin" / "pavo";
}

fs::path bundle()
{
    return prefix() / PAVO_INSTALL_LIBDIR / "pavo-camera" / "CMIOExtensionSupport.bundle";
}

std::set<std::string> files()
{
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(prefix()))
        if (!entry.is_directory()) names.insert(fs::relative(entry.path(), prefix()));
    return names;
}

Outcome run(const std::vector<std::string>& arguments)
{
    const TemporaryFolder folder;
    const std::string output = folder.path() + "/output";
    ChildProcess process(arguments, output);
    const int status = process.waitForExit(std::chrono::seconds(30)).value_or(-1);
    return {status, readFile(output)};
}

std::vector<std::string> commands()
{
    std::vector<std::string> names;
    std::istringstream help(run({pavo(), "--help"}).text);
    bool isList = false;
    for (std::string line; std::getline(help, line);) {
        static const std::regex entry("^ +([a-z-]+) .*");
        std::smatch match;
        if (line == "Subcommands:")
            isList = true;
        else if (line.empty())
            isList = false;
        else if (isList && std::regex_match(line, match, entry))
            names.push_back(match[1]);
    }
    return names;
}

std::set<std::string> options(const std::string& command)
{
    std::vector<std::string> arguments = {pavo()};
    if (!command.empty()) arguments.push_back(command);
    arguments.push_back("--help");
    std::set<std::string> names;
    std::istringstream help(run(arguments).text);
    for (std::string line; std::getline(help, line);) {
        static const std::regex entry("^ +(?:-[a-z],)?(--[a-z0-9-]+)(?: .*)?");
        std::smatch match;
        if (std::regex_match(line, match, entry)) names.insert(match[1]);
    }
    return names;
}

}  // namespace pavo::test::installed
