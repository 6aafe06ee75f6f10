#include "Tests/Support/SurfaceFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace pavo::test {

namespace {

constexpr std::uint32_t kWidth = 64;
constexpr std::uint32_t kHeight = 48;
constexpr std::uint32_t kUyvy = 0x32767579;  // '2vuy'
constexpr std::uint32_t kBytesPerPixel = 2;

}  // namespace

SurfaceFile::SurfaceFile()
{
    trailer.magic = iosurface::kTrailerMagic;
    trailer.version = iosurface::kTrailerVersion;
    trailer.pixelFormat = kUyvy;
    trailer.width = kWidth;
    trailer.height = kHeight;
    trailer.bytesPerElement = kBytesPerPixel;
    trailer.bytesPerRow = kWidth * kBytesPerPixel;
    trailer.allocSize = std::uint64_t{trailer.bytesPerRow} * kHeight;
    const auto page = iosurface::kTrailerSize;
    fileSize = (trailer.allocSize + page - 1) / page * page + page;
}

UniqueFd SurfaceFile::make() const
{
    UniqueFd file(::memfd_create("pavo-surface", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    const auto offset = static_cast<off_t>(fileSize - iosurface::kTrailerSize);
    if (!file.isValid() || ::ftruncate(file.get(), static_cast<off_t>(fileSize)) != 0 ||
        ::pwrite(file.get(), &trailer, sizeof trailer, offset) != static_cast<ssize_t>(sizeof trailer))
        std::abort();
    if (isSealed && ::fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0)
        std::abort();
    return file;
}

}  // namespace pavo::test
