#include "PavoLoggingSupport/OSLogBuffer.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <variant>

namespace pavo {

namespace {

constexpr std::size_t kSummaryIndex = 0;
constexpr std::size_t kItemCountIndex = 1;
constexpr std::uint8_t kHasPrivateItem = 1;
constexpr std::uint8_t kHasNonScalarItem = 2;

cf::Ref<CFStringRef> stringObject(const std::string& text)
{
    const auto make = [](const std::string& bytes) {
        return cf::adopt(CFStringCreateWithBytes(
            kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
            static_cast<CFIndex>(bytes.size()), kCFStringEncodingUTF8, /*isExternalRepresentation=*/false));
    };
    if (auto object = make(text)) return object;
    // Bytes that are no text still leave a trace that can be read.
    std::string readable = text;
    std::replace_if(
        readable.begin(), readable.end(),
        [](char byte) { return (static_cast<unsigned char>(byte) & 0x80) != 0; }, '?');
    return make(readable);
}

}  // namespace

OSLogBuffer::OSLogBuffer(std::string_view format, std::span<const LogArgument> arguments) : bytes_(2, 0)
{
    LogArguments rest(arguments);
    FormatScanner scanner(format);
    while (const auto conversion = scanner.next()) {
        if (conversion->conversion == '%') continue;
        // Items and conversions are matched by their order, so nothing may follow a gap.
        if (!appendConversion(*conversion, rest)) break;
    }
}

OSLogBuffer::Privacy OSLogBuffer::privacyFrom(std::string_view annotation)
{
    while (!annotation.empty()) {
        const auto end = std::min(annotation.find(','), annotation.size());
        auto word = annotation.substr(0, end);
        word.remove_prefix(std::min(word.find_first_not_of(' '), word.size()));
        if (word == "public") return Privacy::isPublic;
        if (word == "private") return Privacy::isPrivate;
        annotation.remove_prefix(std::min(end + 1, annotation.size()));
    }
    return Privacy::automatic;
}

template <typename Value>
void OSLogBuffer::appendItem(Kind kind, Privacy privacy, const Value& value)
{
    if (privacy == Privacy::isPrivate) bytes_[kSummaryIndex] |= kHasPrivateItem;
    if (kind == Kind::text || kind == Kind::object) bytes_[kSummaryIndex] |= kHasNonScalarItem;
    ++bytes_[kItemCountIndex];
    bytes_.push_back(
        static_cast<std::uint8_t>(static_cast<unsigned>(kind) << 4U | static_cast<unsigned>(privacy)));
    bytes_.push_back(sizeof(Value));
    const auto at = bytes_.size();
    bytes_.resize(at + sizeof(Value));
    std::memcpy(bytes_.data() + at, &value, sizeof(Value));
}

bool OSLogBuffer::appendConversion(const FormatConversion& conversion, LogArguments& arguments)
{
    if (!appendAmount(conversion.width, Kind::scalar, arguments)) return false;
    switch (conversion.conversion) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
    case 'o':
    case 'c':
        return appendAmount(conversion.precision, Kind::scalar, arguments) &&
               appendInteger(conversion, arguments);
    case 'f':
    case 'F':
    case 'e':
    case 'E':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
        return appendAmount(conversion.precision, Kind::scalar, arguments) &&
               appendNumber(conversion, arguments);
    case 's':
        return appendText(conversion, arguments);
    case '@':
        return appendAmount(conversion.precision, Kind::scalar, arguments) &&
               appendObject(conversion, arguments);
    default:
        return false;
    }
}

// An amount that stands in the format needs no item.
bool OSLogBuffer::appendAmount(const FormatAmount& amount, Kind kind, LogArguments& arguments)
{
    if (amount.kind != FormatAmount::Kind::fromArgument) return true;
    const auto value = arguments.nextInteger();
    if (value) appendItem(kind, Privacy::automatic, static_cast<std::int32_t>(*value));
    return value.has_value();
}

bool OSLogBuffer::appendInteger(const FormatConversion& conversion, LogArguments& arguments)
{
    const auto value = arguments.nextInteger();
    if (!value) return false;
    const auto privacy = privacyFrom(conversion.annotation);
    if (conversion.length == FormatConversion::Length::long64)
        appendItem(Kind::scalar, privacy, *value);
    else
        appendItem(Kind::scalar, privacy, static_cast<std::uint32_t>(*value));
    return true;
}

bool OSLogBuffer::appendNumber(const FormatConversion& conversion, LogArguments& arguments)
{
    const auto value = arguments.nextNumber();
    if (value) appendItem(Kind::scalar, privacyFrom(conversion.annotation), *value);
    return value.has_value();
}

bool OSLogBuffer::appendText(const FormatConversion& conversion, LogArguments& arguments)
{
    // A text's precision limits how much of it is read, and has an item of its own wherever it comes from.
    if (conversion.precision.kind == FormatAmount::Kind::constant)
        appendItem(Kind::count, Privacy::automatic, static_cast<std::int32_t>(conversion.precision.value));
    else if (!appendAmount(conversion.precision, Kind::count, arguments))
        return false;
    const auto* value = arguments.nextText();
    if (value) appendItem(Kind::text, privacyFrom(conversion.annotation), value->c_str());
    return value != nullptr;
}

bool OSLogBuffer::appendObject(const FormatConversion& conversion, LogArguments& arguments)
{
    const auto* argument = arguments.nextObject();
    if (!argument) return false;
    const auto privacy = privacyFrom(conversion.annotation);
    if (const auto* object = std::get_if<cf::Ref<CFTypeRef>>(&argument->value())) {
        appendItem(Kind::object, privacy, object->get());
    } else {
        objects_.push_back(stringObject(std::get<std::string>(argument->value())));
        appendItem(Kind::object, privacy, objects_.back().get());
    }
    return true;
}

}  // namespace pavo
