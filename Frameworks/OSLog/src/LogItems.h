#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

// The items of an argument buffer, as _os_log_impl takes it.
namespace pavo::oslog {

enum class ItemKind : std::uint8_t { Scalar = 0, Count = 1, CString = 2, Object = 4, Errno = 6 };

constexpr std::uint8_t kPrivateBit = 1;
constexpr std::uint8_t kPublicBit = 2;

struct Item {
    ItemKind kind;
    std::uint8_t privacy;
    std::span<const std::uint8_t> value;

    // The value as a T. Its size was compared before.
    template <typename T>
    T load() const
    {
        T result{};
        std::memcpy(&result, value.data(), sizeof result);
        return result;
    }
    bool isShown() const
    {
        if (privacy & kPrivateBit) return false;
        return (privacy & kPublicBit) || kind == ItemKind::Scalar || kind == ItemKind::Count ||
               kind == ItemKind::Errno;
    }
};

// Walks over the items of a buffer. An item that the buffer has no whole of ends the walk.
class Items {
public:
    explicit Items(std::span<const std::uint8_t> buffer)
    {
        if (buffer.size() < 2) return;
        left_ = buffer[1];
        rest_ = buffer.subspan(2);
    }

    std::optional<Item> next()
    {
        const auto item = peek();
        if (!item) {
            left_ = 0;
            return std::nullopt;
        }
        --left_;
        rest_ = rest_.subspan(2 + item->value.size());
        return item;
    }

    std::optional<Item> peek() const
    {
        if (left_ == 0 || rest_.size() < 2) return std::nullopt;
        const std::size_t size = rest_[1];
        if (rest_.size() - 2 < size) return std::nullopt;
        return Item{static_cast<ItemKind>(rest_[0] >> 4), static_cast<std::uint8_t>(rest_[0] & 0x0F),
                    rest_.subspan(2, size)};
    }

private:
    std::span<const std::uint8_t> rest_;
    unsigned int left_ = 0;
};

}  // namespace pavo::oslog
