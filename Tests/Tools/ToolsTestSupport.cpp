#include "Tests/Tools/ToolsTestSupport.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

namespace pavo::tools {

namespace {

constexpr std::size_t kPaddingBytes = 5;
constexpr std::uint8_t kUntouched = 0xEE;

}  // namespace

TestInput::TestInput(std::string_view bytes) : descriptor_(::memfd_create("input", MFD_CLOEXEC))
{
    EXPECT_EQ(::write(descriptor_.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    EXPECT_EQ(::lseek(descriptor_.get(), 0, SEEK_SET), 0);
}

std::string countingBytes(std::size_t count)
{
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<char>(i);
    return bytes;
}

PaddedImage::PaddedImage(const VideoFormat& format) : format_(format)
{
    std::size_t size = 0;
    for (const auto& plane : planesOf(format))
        size += (plane.rowBytes + kPaddingBytes) * plane.rows;
    bytes_.assign(size, kUntouched);
}

ImageView PaddedImage::view()
{
    ImageView view{format_, {}};
    std::uint8_t* next = bytes_.data();
    std::size_t index = 0;
    for (const auto& plane : planesOf(format_)) {
        view.planes[index++] = {next, plane.rowBytes + kPaddingBytes};
        next += (plane.rowBytes + kPaddingBytes) * plane.rows;
    }
    return view;
}

std::string PaddedImage::pixels()
{
    std::string pixels;
    std::size_t index = 0;
    for (const auto& plane : planesOf(format_)) {
        for (std::size_t y = 0; y < plane.rows; ++y)
            pixels.append(reinterpret_cast<const char*>(view().row(index, y)), plane.rowBytes);
        ++index;
    }
    return pixels;
}

bool PaddedImage::isPaddingUntouched()
{
    std::size_t index = 0;
    for (const auto& plane : planesOf(format_)) {
        for (std::size_t y = 0; y < plane.rows; ++y)
            for (std::size_t i = 0; i < kPaddingBytes; ++i)
                if (view().row(index, y)[plane.rowBytes + i] != kUntouched) return false;
        ++index;
    }
    return true;
}

}  // namespace pavo::tools
