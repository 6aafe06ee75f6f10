#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace xpc {

// The number in these bytes, which are as many as it has, in the byte order of their message.
template <typename Number>
Number wireNumber(std::span<const std::byte> bytes, bool isBigEndian)
{
    using Bits = std::conditional_t<sizeof(Number) == 8, std::uint64_t, std::uint32_t>;
    static_assert(sizeof(Number) == sizeof(Bits));
    Bits bits = 0;
    for (std::size_t i = 0; i < sizeof(Bits); ++i) {
        const auto place = isBigEndian ? i : sizeof(Bits) - 1 - i;
        bits = bits << 8 | std::to_integer<Bits>(bytes[place]);
    }
    return std::bit_cast<Number>(bits);
}

}  // namespace xpc
