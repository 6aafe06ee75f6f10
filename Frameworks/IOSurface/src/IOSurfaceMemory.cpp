#include "IOSurfaceMemory.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace iosurface {

namespace {

constexpr int kRequiredSeals = F_SEAL_SHRINK | F_SEAL_GROW;
constexpr std::uint64_t kMaxFileSize = fileSizeFor(kMaxAllocSize);

// Why the file cannot be a surface; null where it can. Sets the size.
const char* findFileProblem(int fd, std::uint64_t& size)
{
    const int seals = ::fcntl(fd, F_GET_SEALS);
    struct statfs fileSystem{};
    // Memory of huge pages can be sealed as well, but reading it may fail for want of such pages.
    if (seals < 0 || ::fstatfs(fd, &fileSystem) != 0 || fileSystem.f_type != TMPFS_MAGIC)
        return "the descriptor is no memfd";
    // Unsealed, the file could shrink under the mapping, and reading it would end this process.
    if ((seals & kRequiredSeals) != kRequiredSeals)
        return "the file is not sealed against shrinking and growing";
    struct stat status{};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return "the descriptor is no memfd";
    size = static_cast<std::uint64_t>(status.st_size);
    if (size < kTrailerSize * 2 || size % kTrailerSize != 0) return "the file is too small for a trailer";
    if (size > kMaxFileSize) return "the file is too large";
    return nullptr;
}

const char* readTrailer(int fd, std::uint64_t fileSize, Trailer& trailer)
{
    const auto offset = static_cast<off_t>(fileSize - kTrailerSize);
    ssize_t count = 0;
    do
        count = ::pread(fd, &trailer, sizeof trailer, offset);
    while (count < 0 && errno == EINTR);
    if (count != static_cast<ssize_t>(sizeof trailer)) return "the trailer cannot be read";
    if (trailer.magic != kTrailerMagic) return "there is no trailer";
    if (trailer.version != kTrailerVersion) return "the trailer is of another version";
    return nullptr;
}

}  // namespace

std::optional<Memory> Memory::create(const Layout& layout, const char** problem)
{
    pavo::UniqueFd fd(::memfd_create("pavo-surface", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!fd.isValid()) {
        *problem = "there is no descriptor left";
        return {};
    }
    const auto size = fileSizeFor(layout.allocSize);
    if (::ftruncate(fd.get(), static_cast<off_t>(size)) != 0 ||
        ::fcntl(fd.get(), F_ADD_SEALS, kRequiredSeals | F_SEAL_SEAL) != 0) {
        *problem = "the memory cannot be made";
        return {};
    }
    auto memory = map(std::move(fd), size, problem);
    if (!memory) return {};
    const auto trailer = trailerFor(layout);
    std::memcpy(memory->trailer(), &trailer, sizeof trailer);
    return memory;
}

std::optional<Memory> Memory::open(int fd, Layout& layout, const char** problem)
{
    std::uint64_t size = 0;
    *problem = findFileProblem(fd, size);
    if (*problem) return {};
    Trailer trailer{};
    *problem = readTrailer(fd, size, trailer);
    if (*problem) return {};
    layout = layoutFromTrailer(trailer);
    *problem = findProblem(layout);
    if (*problem) return {};
    if (layout.allocSize > size - kTrailerSize) {
        *problem = "the file is smaller than the surface";
        return {};
    }
    // Not among the standard descriptors: 0 would be no valid port.
    pavo::UniqueFd own(::fcntl(fd, F_DUPFD_CLOEXEC, 3));
    if (!own.isValid()) {
        *problem = "there is no descriptor left";
        return {};
    }
    return map(std::move(own), size, problem);
}

std::optional<Memory> Memory::map(pavo::UniqueFd fd, std::uint64_t size, const char** problem)
{
    const auto identity = identityOf(fd.get());
    void* address = MAP_FAILED;
    if (identity) address = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (address == MAP_FAILED) {
        *problem = "the memory cannot be mapped";
        return {};
    }
    return Memory(std::move(fd), static_cast<std::byte*>(address), size, *identity);
}

Memory::Memory(pavo::UniqueFd fd, std::byte* address, std::uint64_t size, FileIdentity identity)
    : fd_(std::move(fd)),
      address_(address),
      size_(size),
      identity_(identity)
{}

Memory::Memory(Memory&& other) noexcept
    : fd_(std::move(other.fd_)),
      address_(std::exchange(other.address_, nullptr)),
      size_(other.size_),
      identity_(other.identity_)
{}

Memory::~Memory()
{
    if (address_) ::munmap(address_, size_);
}

std::optional<FileIdentity> Memory::identityOf(int fd)
{
    struct stat status{};
    if (::fstat(fd, &status) != 0) return {};
    return FileIdentity{status.st_dev, status.st_ino};
}

Trailer* Memory::trailer() const
{
    return reinterpret_cast<Trailer*>(address_ + (size_ - kTrailerSize));
}

std::atomic_ref<std::uint32_t> Memory::seed() const
{
    auto* const field = reinterpret_cast<std::byte*>(trailer()) + offsetof(Trailer, seed);
    return std::atomic_ref(*reinterpret_cast<std::uint32_t*>(field));
}

std::atomic_ref<std::int32_t> Memory::useCount() const
{
    auto* const field = reinterpret_cast<std::byte*>(trailer()) + offsetof(Trailer, useCount);
    return std::atomic_ref(*reinterpret_cast<std::int32_t*>(field));
}

}  // namespace iosurface
