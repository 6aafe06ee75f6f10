#include "Platform/Foundation/NSUUID.h"

#include "Platform/Support/Fatal.h"

#include <sys/random.h>

#include <cerrno>
#include <cstddef>

namespace ns {

namespace {

constexpr std::string_view kPattern = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";

std::optional<std::uint8_t> digitValue(char digit)
{
    if (digit >= '0' && digit <= '9') return static_cast<std::uint8_t>(digit - '0');
    if (digit >= 'a' && digit <= 'f') return static_cast<std::uint8_t>(digit - 'a' + 10);
    if (digit >= 'A' && digit <= 'F') return static_cast<std::uint8_t>(digit - 'A' + 10);
    return std::nullopt;
}

}  // namespace

UUID UUID::random()
{
    std::array<std::uint8_t, 16> bytes{};
    ssize_t count = -1;
    do
        count = ::getrandom(bytes.data(), bytes.size(), 0);
    while (count < 0 && errno == EINTR);
    pavo::require(count == static_cast<ssize_t>(bytes.size()), "The system has no random numbers");
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4: random
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // the standard's variant
    return UUID(bytes);
}

std::optional<UUID> UUID::withString(std::string_view text)
{
    if (text.size() != kPattern.size()) return std::nullopt;
    std::array<std::uint8_t, 16> bytes{};
    std::size_t digits = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (kPattern[i] == '-') {
            if (text[i] != '-') return std::nullopt;
            continue;
        }
        const auto value = digitValue(text[i]);
        if (!value) return std::nullopt;
        bytes[digits / 2] = static_cast<std::uint8_t>(bytes[digits / 2] << 4 | *value);
        ++digits;
    }
    return UUID(bytes);
}

std::string UUID::uuidString() const
{
    static constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    std::size_t digits = 0;
    for (const char place : kPattern) {
        if (place == '-') {
            text += '-';
            continue;
        }
        const auto byte = bytes_[digits / 2];
        text += kDigits[digits % 2 == 0 ? byte >> 4 : byte & 0x0F];
        ++digits;
    }
    return text;
}

}  // namespace ns
