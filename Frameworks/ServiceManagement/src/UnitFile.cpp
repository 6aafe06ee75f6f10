#include "UnitFile.h"

#include <vector>

namespace pavo::servicemanagement {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text)
{
    const auto start = text.find_first_not_of(kBlanks);
    if (start == std::string_view::npos) return {};
    return text.substr(start, text.find_last_not_of(kBlanks) - start + 1);
}

// The lines that are settings or section names, continued ones put together.
std::vector<std::string> logicalLines(std::string_view content)
{
    std::vector<std::string> lines;
    bool isContinued = false;
    while (!content.empty()) {
        const auto end = content.find('\n');
        auto line = trimmed(content.substr(0, end));
        content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
        // A comment within a setting that goes over several lines does not end it.
        if (line.starts_with('#') || line.starts_with(';')) continue;
        if (!isContinued) lines.emplace_back();
        isContinued = line.ends_with('\\');
        if (isContinued) line.remove_suffix(1);
        lines.back().append(line);
        if (isContinued) lines.back() += ' ';
    }
    return lines;
}

std::string firstWord(std::string_view command)
{
    const bool isQuoted = command.starts_with('"');
    if (isQuoted) command.remove_prefix(1);
    const auto end = isQuoted ? command.find('"') : command.find_first_of(kBlanks);
    if (isQuoted && end == std::string_view::npos) return {};
    const auto word = command.substr(0, end);
    if (!word.starts_with('/') || word.find_first_of("%\\'\"") != std::string_view::npos) return {};
    return std::string(word);
}

}  // namespace

std::string programOfUnit(std::string_view content)
{
    std::string section;
    std::vector<std::string> commands;
    for (const auto& line : logicalLines(content)) {
        if (line.starts_with('[')) section = line;
        const auto separator = line.find('=');
        if (section != "[Service]" || separator == std::string::npos) continue;
        if (trimmed(std::string_view(line).substr(0, separator)) != "ExecStart") continue;
        const auto command = trimmed(std::string_view(line).substr(separator + 1));
        // An empty setting takes those before it back.
        if (command.empty())
            commands.clear();
        else
            commands.emplace_back(command);
    }
    return commands.size() == 1 ? firstWord(commands.front()) : std::string();
}

}  // namespace pavo::servicemanagement
