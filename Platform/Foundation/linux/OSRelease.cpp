#include "Platform/Foundation/linux/OSRelease.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace ns {

namespace {

constexpr std::string_view kKey = "VERSION_ID=";

// The front of `text` up to the separator, cut off from it together with the separator.
std::string_view takeUntil(std::string_view& text, char separator)
{
    const auto end = std::min(text.find(separator), text.size());
    const auto taken = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return taken;
}

OperatingSystemVersion versionFrom(std::string_view text)
{
    OperatingSystemVersion version;
    for (auto* number : {&version.majorVersion, &version.minorVersion, &version.patchVersion}) {
        const auto digits = takeUntil(text, '.');
        if (std::from_chars(digits.data(), digits.data() + digits.size(), *number).ec != std::errc()) break;
    }
    return version;
}

}  // namespace

OperatingSystemVersion versionFromOSRelease(std::string_view text)
{
    while (!text.empty()) {
        auto line = takeUntil(text, '\n');
        if (!line.starts_with(kKey)) continue;
        line.remove_prefix(kKey.size());
        const bool isQuoted = line.starts_with('"') || line.starts_with('\'');
        if (!isQuoted) return versionFrom(line);
        const char quotationMark = line.front();
        line.remove_prefix(1);
        return versionFrom(takeUntil(line, quotationMark));
    }
    return {};
}

}  // namespace ns
