#include "Platform/CoreMediaIO/linux/CameraFormats.h"

#include <algorithm>
#include <cstdint>

namespace cmio {

namespace {

// The pace is that of whoever sends; this is only what clients show.
constexpr spa_fraction kFrameRate = {60, 1};
// Enough that a client which holds a few of them slows down no other. But the first client decides for all,
// and one that insists on a number gets it; the server gives no more than 16.
constexpr int kBufferCount = 16;
constexpr int kMinBufferCount = 1;
constexpr int kMaxBufferCount = 32;
constexpr int kAlignment = 16;

// The colours of pictures for screens, with the matrix that webcams have, and that programs which ask for
// none take every camera's YCbCr for. So webcams are described, too. One value each: a client that insists
// on others would show wrong colours, and those after it would be told its values.
constexpr spa_video_colorimetry kColors = {SPA_VIDEO_COLOR_RANGE_16_235, SPA_VIDEO_COLOR_MATRIX_BT601,
                                           SPA_VIDEO_TRANSFER_SRGB, SPA_VIDEO_COLOR_PRIMARIES_BT709};

spa_video_format spaFormat(VideoFormat format)
{
    switch (format) {
    case VideoFormat::yuy2:
        return SPA_VIDEO_FORMAT_YUY2;
    case VideoFormat::nv12:
        return SPA_VIDEO_FORMAT_NV12;
    }
    return SPA_VIDEO_FORMAT_UNKNOWN;
}

const spa_pod* finish(void* pod)
{
    return static_cast<const spa_pod*>(pod);
}

}  // namespace

const spa_pod* buildFormat(spa_pod_builder& builder, const VideoLayout& layout)
{
    const spa_rectangle size = {static_cast<std::uint32_t>(layout.width),
                                static_cast<std::uint32_t>(layout.height)};
    return finish(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat, SPA_FORMAT_mediaType,
        SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw),
        SPA_FORMAT_VIDEO_format, SPA_POD_Id(spaFormat(layout.format)), SPA_FORMAT_VIDEO_size,
        SPA_POD_Rectangle(&size), SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&kFrameRate),
        SPA_FORMAT_VIDEO_colorRange, SPA_POD_Id(kColors.range), SPA_FORMAT_VIDEO_colorMatrix,
        SPA_POD_Id(kColors.matrix), SPA_FORMAT_VIDEO_transferFunction, SPA_POD_Id(kColors.transfer),
        SPA_FORMAT_VIDEO_colorPrimaries, SPA_POD_Id(kColors.primaries)));
}

const spa_pod* buildBuffers(spa_pod_builder& builder, const VideoLayout& layout)
{
    return finish(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
        SPA_POD_CHOICE_RANGE_Int(kBufferCount, kMinBufferCount, kMaxBufferCount), SPA_PARAM_BUFFERS_blocks,
        SPA_POD_Int(1), SPA_PARAM_BUFFERS_size, SPA_POD_Int(static_cast<int>(layout.size())),
        SPA_PARAM_BUFFERS_stride, SPA_POD_Int(layout.stride()), SPA_PARAM_BUFFERS_align,
        SPA_POD_Int(kAlignment), SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int(1 << SPA_DATA_MemFd)));
}

const spa_pod* buildHeaderMeta(spa_pod_builder& builder)
{
    return finish(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
        SPA_PARAM_META_size, SPA_POD_Int(static_cast<int>(sizeof(spa_meta_header)))));
}

std::optional<VideoLayout> parseFormat(const spa_pod* format)
{
    spa_video_info_raw info{};
    if (spa_format_video_raw_parse(format, &info) < 0) return std::nullopt;
    const auto* const found =
        std::find_if(kOfferedFormats.begin(), kOfferedFormats.end(),
                     [&info](VideoFormat offered) { return spaFormat(offered) == info.format; });
    if (found == kOfferedFormats.end()) return std::nullopt;
    return VideoLayout{*found, static_cast<int>(info.size.width), static_cast<int>(info.size.height)};
}

}  // namespace cmio
