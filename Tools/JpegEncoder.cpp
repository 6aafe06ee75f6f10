#include "Tools/JpegEncoder.h"

#include "Platform/Support/Fatal.h"

#include <turbojpeg.h>

namespace pavo::tools {

JpegEncoder::JpegEncoder(int quality) : quality_(quality), handle_(::tjInitCompress())
{
    require(handle_ != nullptr, "no JPEG encoder can be made");
}

JpegEncoder::~JpegEncoder()
{
    ::tjDestroy(handle_);
}

std::vector<std::uint8_t> JpegEncoder::encode(Image& picture)
{
    const VideoFormat& format = picture.format();
    require(format.packing == Packing::bgra, "only BGRA pictures become JPEG");
    const int width = static_cast<int>(format.width), height = static_cast<int>(format.height);
    const ImageView view = picture.view();
    const auto& [data, stride] = view.planes[0];
    // So large that the library has nothing to allocate.
    std::vector<std::uint8_t> jpeg(::tjBufSize(width, height, TJSAMP_420));
    unsigned char* into = jpeg.data();
    unsigned long size = jpeg.size();
    if (::tjCompress2(handle_, data, width, static_cast<int>(stride), height, TJPF_BGRX, &into, &size,
                      TJSAMP_420, quality_, TJFLAG_NOREALLOC) != 0)
        return {};
    jpeg.resize(size);
    return jpeg;
}

}  // namespace pavo::tools
