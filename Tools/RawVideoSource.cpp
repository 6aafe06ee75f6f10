#include "Tools/RawVideoSource.h"

#include <span>
#include <utility>

namespace pavo::tools {

FrameOutcome judgeRead(const ByteReader& reader, std::size_t got, std::size_t wanted, std::uint64_t index,
                       FrameStart start)
{
    if (got == wanted) return {FrameStatus::ready};
    if (reader.wasStopped()) return {FrameStatus::stopped};
    if (!reader.problem().empty())
        return {FrameStatus::failed, "the input cannot be read: " + reader.problem()};
    const bool isBetweenFrames = got == 0 && start == FrameStart::notSeen;
    if (isBetweenFrames && index > 0) return {FrameStatus::ended};
    if (isBetweenFrames) return {FrameStatus::failed, "the input has no frame"};
    return {FrameStatus::failed, "the input ends inside of frame " + std::to_string(index) + ": " +
                                     std::to_string(got) + " of " + std::to_string(wanted) + " bytes"};
}

FrameOutcome readFrame(ByteReader& reader, const ImageView& into, std::uint64_t index, FrameStart start)
{
    const std::size_t wanted = frameBytes(into.format);
    std::size_t got = 0, planeIndex = 0;
    for (const auto& plane : planesOf(into.format)) {
        const bool isPadded = into.planes[planeIndex].strideBytes != plane.rowBytes;
        const std::size_t pieces = isPadded ? plane.rows : 1;
        const std::size_t pieceBytes = isPadded ? plane.rowBytes : plane.rowBytes * plane.rows;
        for (std::size_t piece = 0; piece < pieces; ++piece) {
            const std::size_t count = reader.read(std::span(into.row(planeIndex, piece), pieceBytes));
            got += count;
            if (count < pieceBytes) return judgeRead(reader, got, wanted, index, start);
        }
        ++planeIndex;
    }
    return {FrameStatus::ready};
}

FrameOutcome RawVideoSource::next(const ImageView& into)
{
    return readFrame(*reader_, into, index_++, FrameStart::notSeen);
}

FrameOutcome RawVideoSource::skip()
{
    const std::size_t wanted = frameBytes(format_);
    return judgeRead(*reader_, reader_->skip(wanted), wanted, index_++, FrameStart::notSeen);
}

}  // namespace pavo::tools
