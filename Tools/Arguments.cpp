#include "Tools/Arguments.h"

#include "Tools/Numbers.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>

namespace pavo::tools {
namespace {

std::string quoted(std::string_view text)
{
    return "'" + std::string(text) + "'";
}

}  // namespace

Result<Size> parseSize(std::string_view text)
{
    const auto cross = text.find('x');
    Size size{};
    if (cross == std::string_view::npos || !parseWhole(text.substr(0, cross), size.width) ||
        !parseWhole(text.substr(cross + 1), size.height))
        return Problem{"a size is WIDTHxHEIGHT, as 1280x720, not " + quoted(text)};
    const auto [least, most] = std::minmax(size.width, size.height);
    if (least < 1 || most > kLargestSide)
        return Problem{"both sides of a size are from 1 to " + std::to_string(kLargestSide) + ", unlike in " +
                       quoted(text)};
    return size;
}

Result<FrameRate> parseRate(std::string_view text)
{
    const Problem problem{
        "a frame rate is a number above 0 and at most 1000, as 60, 29.97 or 30000/1001, not " + quoted(text)};
    FrameRate rate{0, 1};
    const auto slash = text.find('/');
    if (slash != std::string_view::npos) {
        if (!parseWhole(text.substr(0, slash), rate.numerator) ||
            !parseWhole(text.substr(slash + 1), rate.denominator))
            return problem;
    } else {
        double decimal = 0;
        if (!parseWhole(text, decimal) || !std::isfinite(decimal) || decimal <= 0 || decimal > kFastestRate)
            return problem;
        constexpr std::uint32_t kPrecision = 1000;
        rate = {static_cast<std::uint32_t>(std::lround(decimal * kPrecision)), kPrecision};
    }
    if (rate.numerator == 0 || rate.denominator == 0 || rate.framesPerSecond() > kFastestRate) return problem;
    return rate;
}

Result<std::uint64_t> parseCount(std::string_view text)
{
    std::uint64_t count = 0;
    // Others would read a leading zero as the sign of another base.
    if (text.starts_with('0') || !parseWhole(text, count))
        return Problem{"a count is a whole number from 1, not " + quoted(text)};
    return count;
}

Result<std::uint16_t> parsePort(std::string_view text)
{
    std::uint16_t port = 0;
    if (!parseWhole(text, port))
        return Problem{"a port is a whole number from 0 to 65535, not " + quoted(text)};
    return port;
}

Result<double> parseDuration(std::string_view text)
{
    double seconds = 0;
    if (!parseWhole(text, seconds) || !(seconds > 0 && seconds <= kLongestSeconds))
        return Problem{"a time is a number of seconds above 0, as 2.5, not " + quoted(text)};
    return seconds;
}

Result<double> parseDelay(std::string_view text)
{
    double seconds = 0;
    if (!parseWhole(text, seconds) || !(seconds >= 0 && seconds <= kLongestSeconds))
        return Problem{"a time is a number of seconds from 0, as 2.5, not " + quoted(text)};
    return seconds;
}

Result<std::string> parseName(std::string_view text)
{
    if (text.empty()) return Problem{"the name is empty"};
    return std::string(text);
}

Result<Packing> parsePacking(std::string_view text)
{
    const auto isSame = [](char a, char b) {
        return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
    };
    for (const auto packing : {Packing::uyvy, Packing::yuy2, Packing::nv12, Packing::i420, Packing::bgra})
        if (std::ranges::equal(text, nameOf(packing), isSame)) return packing;
    return Problem{"a format is UYVY, YUY2, NV12, I420 or BGRA, not " + quoted(text)};
}

Result<std::optional<Matrix>> parseMatrix(std::string_view text)
{
    if (text == "auto") return std::optional<Matrix>();
    if (text == "bt601") return std::optional(Matrix::bt601);
    if (text == "bt709") return std::optional(Matrix::bt709);
    return Problem{"a matrix is auto, bt601 or bt709, not " + quoted(text)};
}

Result<std::string> numberedName(std::string_view pattern, unsigned number)
{
    const Problem problem{"a file name for several pictures holds one number, as shot-%04d.png, unlike " +
                          quoted(pattern)};
    const auto percent = pattern.find('%');
    const auto end = pattern.find('d', percent == std::string_view::npos ? 0 : percent);
    if (percent == std::string_view::npos || end == std::string_view::npos) return problem;
    const std::string_view width = pattern.substr(percent + 1, end - percent - 1);
    unsigned digits = 1;
    if (!width.empty() && (width[0] != '0' || !parseWhole(width, digits) || digits > 9)) return problem;
    if (pattern.find('%', end) != std::string_view::npos) return problem;
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%0*u", static_cast<int>(digits), number);
    return std::string(pattern.substr(0, percent)) + text.data() + std::string(pattern.substr(end + 1));
}

}  // namespace pavo::tools
