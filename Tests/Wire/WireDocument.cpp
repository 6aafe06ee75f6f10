#include "Tests/Wire/WireDocument.h"

#include <algorithm>
#include <fstream>
#include <regex>

namespace pavo::test {

namespace {

std::string trimmed(std::string cell)
{
    std::erase(cell, '`');
    const auto begin = cell.find_first_not_of(' ');
    if (begin == std::string::npos) return {};
    return cell.substr(begin, cell.find_last_not_of(' ') - begin + 1);
}

std::vector<std::string> cellsOf(const std::string& row)
{
    std::vector<std::string> cells;
    for (auto begin = row.find('|'), end = row.find('|', begin + 1); end != std::string::npos;
         begin = end, end = row.find('|', begin + 1))
        cells.push_back(trimmed(row.substr(begin + 1, end - begin - 1)));
    return cells;
}

}  // namespace

WireDocument::WireDocument()
{
    std::ifstream file(PAVO_WIRE_DOCUMENT);
    for (std::string line; std::getline(file, line);) {
        text_ += line + "\n";
        lines_.push_back(line);
    }
}

std::vector<std::vector<std::string>> WireDocument::rowsUnder(const std::string& heading) const
{
    std::vector<std::vector<std::string>> rows;
    bool isUnder = false;
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        const auto& line = lines_[i];
        if (line.starts_with('#')) isUnder = line.find(heading) != std::string::npos;
        if (!isUnder || !line.starts_with('|') || line.starts_with("|---")) continue;
        const bool isTableHeading = i + 1 < lines_.size() && lines_[i + 1].starts_with("|---");
        if (!isTableHeading) rows.push_back(cellsOf(line));
    }
    return rows;
}

std::vector<std::string> WireDocument::listings() const
{
    static const std::regex row("^    ([0-9a-f]{4})((?:  ?[0-9a-f]{2}){1,16})  .*$");
    std::vector<std::string> found;
    for (const auto& line : lines_) {
        std::smatch match;
        if (!std::regex_match(line, match, row)) continue;
        if (match[1] == "0000") found.emplace_back();
        std::string digits = match[2];
        std::erase(digits, ' ');
        for (std::size_t i = 0; i < digits.size(); i += 2)
            found.back() += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return found;
}

}  // namespace pavo::test
