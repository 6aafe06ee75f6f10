#include "Tests/Platform/CoreMediaIO/ClientProcess.h"

#include "Tests/Support/Wait.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

namespace cmio::test {

namespace {

std::vector<std::string> withProgram(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), PAVO_TEST_CLIENT);
    return arguments;
}

void parseColor(const std::string& text, int (&color)[3])
{
    std::sscanf(text.c_str(), "%d,%d,%d", &color[0], &color[1], &color[2]);
}

// For both directions, so that neither end waits for the other one's opening.
pavo::UniqueFd openGate(const std::string& path)
{
    ::mkfifo(path.c_str(), 0600);
    return pavo::UniqueFd(::open(path.c_str(), O_RDWR | O_CLOEXEC));
}

}  // namespace

ClientProcess::ClientProcess(std::vector<std::string> arguments)
    : process_(withProgram(std::move(arguments)), folder_.path() + "/output")
{}

std::string ClientProcess::output() const
{
    return pavo::test::readFile(folder_.path() + "/output");
}

std::vector<SeenFrame> ClientProcess::frames() const
{
    std::vector<SeenFrame> frames;
    const std::string text = output();
    std::istringstream lines(text.substr(0, text.rfind('\n') + 1));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string kind, first, second;
        SeenFrame frame;
        if (words >> kind && kind == "frame" &&
            words >> frame.sequence >> frame.time >> frame.format >> frame.size >> frame.stride >> first >>
                second) {
            parseColor(first, frame.upperLeft);
            parseColor(second, frame.lowerRight);
            frames.push_back(frame);
        }
    }
    return frames;
}

bool ClientProcess::waitForFrames(std::size_t count) const
{
    return pavo::test::waitFor([this, count] { return frames().size() >= count; });
}

HoldingClient::HoldingClient()
    : gatePath_(folder_.path() + "/gate"),
      gate_(openGate(gatePath_)),
      process_({"--gate", gatePath_})
{}

bool HoldingClient::letGo() const
{
    return ::write(gate_.get(), "", 1) == 1;
}

}  // namespace cmio::test
