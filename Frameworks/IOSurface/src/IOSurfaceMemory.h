#pragma once

#include "IOSurfaceLayout.h"
#include "Platform/Support/UniqueFd.h"

#include <sys/types.h>

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace iosurface {

// Tells a surface from all others while any process has it.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;

    auto operator<=>(const FileIdentity&) const = default;
};

// The memfd of a surface, mapped as a whole.
//
// Ownership: owns descriptor and mapping.
// Threads:   immutable; seed and use count are atomic.
// Errors:    a creator that fails gives none, sets `problem` to the reason in words, and leaves nothing
//            behind.
class Memory final {
public:
    // New memory for a layout without a problem, sealed, with its trailer written.
    static std::optional<Memory> create(const Layout& layout, const char** problem);
    // The memory behind a descriptor that anybody may have sent, which is borrowed. `layout` becomes the copy
    // of what the trailer says, checked against the limits and the size of the file.
    static std::optional<Memory> open(int fd, Layout& layout, const char** problem);

    Memory(Memory&& other) noexcept;
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;
    ~Memory();

    // The file behind a descriptor, if there is one.
    static std::optional<FileIdentity> identityOf(int fd);

    const FileIdentity& identity() const { return identity_; }
    int fd() const { return fd_.get(); }
    std::byte* pixels() const { return address_; }
    // References into memory that other processes change too.
    std::atomic_ref<std::uint32_t> seed() const;
    std::atomic_ref<std::int32_t> useCount() const;

private:
    Memory(pavo::UniqueFd fd, std::byte* address, std::uint64_t size, FileIdentity identity);
    static std::optional<Memory> map(pavo::UniqueFd fd, std::uint64_t size, const char** problem);
    Trailer* trailer() const;

    pavo::UniqueFd fd_;
    std::byte* address_;
    std::uint64_t size_;
    FileIdentity identity_;
};

}  // namespace iosurface
