#include "Tools/Reporter.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>
#include <utility>

namespace pavo::tools {
namespace {

int lengthOf(std::string_view text)
{
    return static_cast<int>(text.size());
}

}  // namespace

Reporter::Reporter(std::string_view command, bool isJson)
    : command_(command),
      isJson_(isJson),
      isTerminal_(!isJson && ::isatty(STDERR_FILENO) == 1)
{}

Reporter::~Reporter()
{
    clearStatus();
}

void Reporter::clearStatus()
{
    if (std::exchange(hasStatus_, false)) std::fputs("\r\x1b[K", stderr);
}

void Reporter::say(std::string_view sentence)
{
    if (isJson_) return;
    const std::lock_guard lock(mutex_);
    clearStatus();
    std::fprintf(stderr, "%.*s\n", lengthOf(sentence), sentence.data());
}

bool Reporter::emit(const nlohmann::json& event)
{
    if (!isJson_) return true;
    // File names may be any bytes; JSON has to be UTF-8.
    const std::string line = event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    const std::lock_guard lock(mutex_);
    return std::fwrite(line.data(), 1, line.size(), stdout) == line.size() && std::fflush(stdout) == 0;
}

void Reporter::error(std::string_view sentence)
{
    const std::lock_guard lock(mutex_);
    clearStatus();
    std::fprintf(stderr, "%.*s: %.*s\n", lengthOf(command_), command_.data(), lengthOf(sentence),
                 sentence.data());
}

void Reporter::status(std::string_view line)
{
    if (!isTerminal_) return;
    const std::lock_guard lock(mutex_);
    std::fprintf(stderr, "\r\x1b[K%.*s", lengthOf(line), line.data());
    hasStatus_ = true;
}

}  // namespace pavo::tools
