#pragma once

#include <sys/qos.h>

#include <array>
#include <cstddef>
#include <optional>

namespace dispatch::runtime {

// The quality of service classes as steps of urgency, most urgent first.
enum class Level : std::size_t { userInteractive, userInitiated, standard, utility, background };

inline constexpr std::size_t kLevelCount = 5;
inline constexpr std::array<Level, kLevelCount> kLevels = {
    Level::userInteractive, Level::userInitiated, Level::standard, Level::utility, Level::background};

// What names no class counts as standard; empty for what is no class at all.
inline std::optional<Level> levelOf(unsigned long qualityOfService)
{
    switch (qualityOfService) {
    case QOS_CLASS_USER_INTERACTIVE:
        return Level::userInteractive;
    case QOS_CLASS_USER_INITIATED:
        return Level::userInitiated;
    case QOS_CLASS_DEFAULT:
    case QOS_CLASS_UNSPECIFIED:
        return Level::standard;
    case QOS_CLASS_UTILITY:
        return Level::utility;
    case QOS_CLASS_BACKGROUND:
        return Level::background;
    default:
        return std::nullopt;
    }
}

}  // namespace dispatch::runtime
