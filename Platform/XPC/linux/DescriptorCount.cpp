#include "Platform/XPC/linux/DescriptorCount.h"

#include "Platform/XPC/linux/WireNumber.h"

#include <algorithm>

namespace xpc {

namespace {

// D-Bus: the code of the header field UNIX_FDS.
constexpr std::uint8_t kDescriptorCountField = 9;

// Walks over the array of header fields, each a structure (code, variant) that begins at a multiple of 8.
class FieldWalker {
public:
    FieldWalker(std::span<std::byte> fields, bool isBigEndian) : fields_(fields), isBigEndian_(isBigEndian) {}

    bool isAtEnd() const { return position_ == fields_.size(); }

    // Reads the code and the type of the next field; its value comes next.
    bool nextField(std::uint8_t& code, char& type)
    {
        if (!align(8) || fields_.size() - position_ < 4) return false;
        code = std::to_integer<std::uint8_t>(fields_[position_]);
        type = std::to_integer<char>(fields_[position_ + 2]);
        // Every field of the standard has a type of one letter.
        const bool isOneLetter =
            fields_[position_ + 1] == std::byte{1} && fields_[position_ + 3] == std::byte{0};
        position_ += 4;
        return isOneLetter;
    }

    bool takeNumber(std::uint32_t& number)
    {
        if (!align(4) || fields_.size() - position_ < sizeof(number)) return false;
        const auto place = fields_.subspan(position_, sizeof(number));
        number = wireNumber<std::uint32_t>(place, isBigEndian_);
        std::fill(place.begin(), place.end(), std::byte{0});
        position_ += sizeof(number);
        return true;
    }

    bool skipValue(char type)
    {
        switch (type) {
        case 'y':
            return skip(1);
        case 'n':
        case 'q':
            return align(2) && skip(2);
        case 'b':
        case 'i':
        case 'u':
        case 'h':
            return align(4) && skip(4);
        case 'x':
        case 't':
        case 'd':
            return align(8) && skip(8);
        case 'g':
            return position_ < fields_.size() &&
                   skip(std::to_integer<std::size_t>(fields_[position_]) + 2);  // length, text, NUL
        case 's':
        case 'o':
            if (!align(4) || fields_.size() - position_ < 4) return false;
            return skip(std::size_t{4} +
                        wireNumber<std::uint32_t>(fields_.subspan(position_, 4), isBigEndian_) + 1);
        default:
            return false;
        }
    }

private:
    bool align(std::size_t size) { return skip((size - position_ % size) % size); }
    bool skip(std::size_t size)
    {
        if (fields_.size() - position_ < size) return false;
        position_ += size;
        return true;
    }

    const std::span<std::byte> fields_;
    const bool isBigEndian_;
    std::size_t position_ = 0;
};

}  // namespace

std::optional<std::uint32_t> takeDescriptorCount(std::span<std::byte> fields, bool isBigEndian)
{
    FieldWalker walker(fields, isBigEndian);
    std::uint32_t count = 0;
    while (!walker.isAtEnd()) {
        std::uint8_t code = 0;
        char type = 0;
        if (!walker.nextField(code, type)) return std::nullopt;
        const bool isCount = code == kDescriptorCountField && type == 'u';
        if (isCount ? !walker.takeNumber(count) : !walker.skipValue(type)) return std::nullopt;
    }
    return count;
}

}  // namespace xpc
