#include "PavoLoggingSupport/DescriptiveText.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace pavo {

namespace {

// From here on whole numbers no longer fit a number's 53 bits, and are written with an exponent.
constexpr double kExponentFrom = 1e16;
constexpr double kExponentBelow = 1e-4;

std::string decimalText(double value)
{
    const double magnitude = std::abs(value);
    const bool hasExponent = magnitude != 0 && (magnitude >= kExponentFrom || magnitude < kExponentBelow);
    std::array<char, 64> text{};
    // 17 significant digits always read back as the same number; most need fewer.
    for (int digits = 1; digits <= 17; ++digits) {
        std::snprintf(text.data(), text.size(), "%.*e", digits - 1, value);
        if (std::strtod(text.data(), nullptr) != value) continue;
        if (hasExponent) break;
        const int exponent =
            std::atoi(std::string(text.data()).substr(std::string(text.data()).find('e') + 1).c_str());
        const int decimals = std::max(1, digits - 1 - exponent);
        std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
        break;
    }
    return text.data();
}

}  // namespace

std::string floatingPointText(double value)
{
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    return decimalText(value);
}

std::string quotedText(std::string_view value)
{
    std::string text = "\"";
    for (const char character : value) {
        switch (character) {
        case '"':
            text += "\\\"";
            break;
        case '\\':
            text += "\\\\";
            break;
        case '\n':
            text += "\\n";
            break;
        case '\r':
            text += "\\r";
            break;
        case '\t':
            text += "\\t";
            break;
        case '\0':
            text += "\\0";
            break;
        default:
            text += character;
        }
    }
    return text + '"';
}

std::string objectText(CFTypeRef object)
{
    if (!object) return "nil";
    const auto description = CFGetTypeID(object) == CFStringGetTypeID()
                                 ? cf::retain(static_cast<CFStringRef>(object))
                                 : cf::adopt(CFCopyDescription(object));
    if (!description) return "nil";
    const CFIndex size =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(description.get()), kCFStringEncodingUTF8) + 1;
    std::vector<char> text(static_cast<std::size_t>(size));
    if (!CFStringGetCString(description.get(), text.data(), size, kCFStringEncodingUTF8)) return "nil";
    return text.data();
}

}  // namespace pavo
