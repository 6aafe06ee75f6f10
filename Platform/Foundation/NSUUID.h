#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ns {

// A universally unique identifier, compared by its 16 bytes.
class UUID final {
public:
    // A new random one (version 4).
    static UUID random();
    // From text of the form 8-4-4-4-12, in either case; none for anything else.
    static std::optional<UUID> withString(std::string_view text);

    // Upper case, 8-4-4-4-12.
    std::string uuidString() const;
    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

    auto operator<=>(const UUID&) const = default;

private:
    explicit UUID(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

    std::array<std::uint8_t, 16> bytes_;
};

}  // namespace ns
