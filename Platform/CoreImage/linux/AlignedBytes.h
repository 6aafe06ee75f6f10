#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sys/mman.h>

namespace ci {

// Memory for rows of samples, placed as the scaler's vector code wants it. In pages of its own: a picture's
// memory is wanted for a moment, and an allocator would keep it for the next.
class AlignedBytes final {
public:
    static constexpr std::size_t kAlignment = 64;  // that of a row; pages have more

    static constexpr std::size_t alignedSize(std::size_t size)
    {
        return (size + kAlignment - 1) / kAlignment * kAlignment;
    }

    AlignedBytes() : bytes_(nullptr, Unmap{0}) {}
    // Zeros. Null data where memory is out.
    explicit AlignedBytes(std::size_t size) : bytes_(map(size), Unmap{size}) {}

    std::uint8_t* data() const { return bytes_.get(); }

private:
    struct Unmap {
        std::size_t size;
        void operator()(std::uint8_t* bytes) const { ::munmap(bytes, size); }
    };

    static std::uint8_t* map(std::size_t size)
    {
        void* const bytes = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return bytes == MAP_FAILED ? nullptr : static_cast<std::uint8_t*>(bytes);
    }

    std::unique_ptr<std::uint8_t, Unmap> bytes_;
};

}  // namespace ci
