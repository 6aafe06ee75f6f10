#include "Tools/Y4MSource.h"

#include "Tools/Numbers.h"
#include "Tools/RawVideoSource.h"

#include <algorithm>
#include <libyuv.h>
#include <span>
#include <utility>

namespace pavo::tools {
namespace {

constexpr std::size_t kHeaderLimit = 1024;

bool parseSide(std::string_view text, std::uint32_t& side)
{
    return parseWhole(text, side) && side >= 1 && side <= kLargestSide;
}

// "30000:1001". 0:0 means that nobody knows.
bool parseRate(std::string_view text, std::optional<FrameRate>& rate)
{
    const auto colon = text.find(':');
    FrameRate parsed{};
    if (colon == std::string_view::npos || !parseWhole(text.substr(0, colon), parsed.numerator) ||
        !parseWhole(text.substr(colon + 1), parsed.denominator))
        return false;
    if (parsed.numerator == 0 || parsed.denominator == 0) return true;
    if (parsed.framesPerSecond() > kFastestRate) return false;
    rate = parsed;
    return true;
}

// The names differ in where chroma is sampled, which no camera format can say.
bool parseColour(std::string_view text, bool& is422)
{
    is422 = text == "422";
    return is422 || text == "420" || text == "420jpeg" || text == "420mpeg2" || text == "420paldv";
}

}  // namespace

Result<Y4MHeader> parseY4MHeader(std::string_view line)
{
    if (!line.starts_with(kY4MMagic) || (line.size() > kY4MMagic.size() && line[kY4MMagic.size()] != ' '))
        return Problem{"the input is not YUV4MPEG2"};
    Y4MHeader header;
    std::string_view rest = line.substr(kY4MMagic.size());
    while (!rest.empty()) {
        const auto begin = rest.find_first_not_of(' ');
        if (begin == std::string_view::npos) break;
        const auto end = std::min(rest.find(' ', begin), rest.size());
        const std::string_view parameter = rest.substr(begin, end - begin);
        rest.remove_prefix(end);

        const std::string_view value = parameter.substr(1);
        bool isGood = true;
        // Interlacing, aspect and comments change nothing for a camera.
        if (parameter[0] == 'W') isGood = parseSide(value, header.width);
        if (parameter[0] == 'H') isGood = parseSide(value, header.height);
        if (parameter[0] == 'F') isGood = parseRate(value, header.rate);
        if (parameter[0] == 'C') {
            isGood = parseColour(value, header.is422);
            if (!isGood)
                return Problem{"YUV4MPEG2 with colour space " + std::string(value) +
                               " is not supported: 8 bit 4:2:0 and 4:2:2 are (ffmpeg: -pix_fmt yuv420p)"};
        }
        if (!isGood) return Problem{"the YUV4MPEG2 header has a bad parameter: " + std::string(parameter)};
    }
    if (header.width == 0 || header.height == 0) return Problem{"the YUV4MPEG2 header does not say the size"};
    return header;
}

Result<std::unique_ptr<FrameSource>> Y4MSource::open(std::unique_ptr<ByteReader> reader)
{
    const auto line = reader->readLine(kHeaderLimit);
    if (!line) return Problem{"the YUV4MPEG2 header has no end"};
    const auto header = parseY4MHeader(*line);
    if (!header) return header.problem();
    return std::unique_ptr<FrameSource>(std::make_unique<Y4MSource>(std::move(reader), header.value()));
}

Y4MSource::Y4MSource(std::unique_ptr<ByteReader> reader, const Y4MHeader& header)
    : reader_(std::move(reader)),
      header_(header)
{
    if (header_.is422) planar_.resize(storedBytes());
}

VideoFormat Y4MSource::format() const
{
    return {header_.is422 ? Packing::uyvy : Packing::i420, header_.width, header_.height};
}

std::size_t Y4MSource::storedBytes() const
{
    const std::size_t halfWidth = (header_.width + std::size_t{1}) / 2;
    if (header_.is422) return (header_.width + 2 * halfWidth) * header_.height;
    return frameBytes(format());
}

// The line before each frame.
FrameOutcome Y4MSource::readFrameLine()
{
    const auto line = reader_->readLine(kHeaderLimit);
    if (line && (*line == "FRAME" || line->starts_with("FRAME "))) return {FrameStatus::ready};
    if (reader_->wasStopped()) return {FrameStatus::stopped};
    if (!reader_->problem().empty())
        return {FrameStatus::failed, "the input cannot be read: " + reader_->problem()};
    std::uint8_t next = 0;
    if (!line && reader_->read({&next, 1}) == 0) {
        if (index_ > 0) return {FrameStatus::ended};
        return {FrameStatus::failed, "the input has no frame"};
    }
    return {FrameStatus::failed,
            "the input has no YUV4MPEG2 frame where frame " + std::to_string(index_) + " should begin"};
}

FrameOutcome Y4MSource::next(const ImageView& into)
{
    if (auto outcome = readFrameLine(); outcome.status != FrameStatus::ready) return outcome;
    if (!header_.is422) return readFrame(*reader_, into, index_++, FrameStart::seen);

    const std::size_t got = reader_->read(planar_);
    const auto outcome = judgeRead(*reader_, got, planar_.size(), index_++, FrameStart::seen);
    if (outcome.status != FrameStatus::ready) return outcome;
    const int width = static_cast<int>(header_.width), height = static_cast<int>(header_.height);
    const int halfWidth = (width + 1) / 2;
    const std::uint8_t* y = planar_.data();
    const std::uint8_t* u = y + std::size_t{header_.width} * header_.height;
    const std::uint8_t* v = u + static_cast<std::size_t>(halfWidth) * header_.height;
    libyuv::I422ToUYVY(y, width, u, halfWidth, v, halfWidth, into.planes[0].data,
                       static_cast<int>(into.planes[0].strideBytes), width, height);
    return {FrameStatus::ready};
}

FrameOutcome Y4MSource::skip()
{
    if (auto outcome = readFrameLine(); outcome.status != FrameStatus::ready) return outcome;
    const std::size_t wanted = storedBytes();
    return judgeRead(*reader_, reader_->skip(wanted), wanted, index_++, FrameStart::seen);
}

}  // namespace pavo::tools
