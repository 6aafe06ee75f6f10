#include "Platform/CoreMediaIO/linux/FrameMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <utility>

namespace cmio {

std::unique_ptr<FrameMemory> FrameMemory::create(std::size_t size)
{
    pavo::UniqueFd descriptor(::memfd_create("pavo-camera-frame", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!descriptor.isValid() || ::ftruncate(descriptor.get(), static_cast<off_t>(size)) != 0 ||
        ::fcntl(descriptor.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) != 0)
        return nullptr;
    void* pixels = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor.get(), 0);
    if (pixels == MAP_FAILED) return nullptr;
    return std::unique_ptr<FrameMemory>(
        new FrameMemory(std::move(descriptor), static_cast<std::uint8_t*>(pixels), size));
}

FrameMemory::FrameMemory(pavo::UniqueFd descriptor, std::uint8_t* pixels, std::size_t size)
    : descriptor_(std::move(descriptor)),
      pixels_(pixels),
      size_(size)
{}

FrameMemory::~FrameMemory()
{
    ::munmap(pixels_, size_);
}

}  // namespace cmio
