#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pavo::tools {

// Reads a pipe or a file as bytes and lines, and gives up at once when the program is to end.
//
// Ownership: borrows both descriptors.
class ByteReader final {
public:
    // A negative `stopDescriptor` never stops it.
    explicit ByteReader(int descriptor, int stopDescriptor = -1);

    // Fills `into`; fewer bytes where the input ends, fails or is stopped before.
    std::size_t read(std::span<std::uint8_t> into);
    // Reads and drops; how many bytes there were.
    std::size_t skip(std::size_t count);
    // A line without its end; none where the input ends within `limit` bytes of it without one.
    std::optional<std::string> readLine(std::size_t limit);
    // Whether the input goes on with that text. Nothing is taken.
    bool startsWith(std::string_view text);

    bool wasStopped() const { return wasStopped_; }
    // Why reading failed; empty where it did not.
    const std::string& problem() const { return problem_; }

private:
    std::size_t readSome(std::span<std::uint8_t> into);
    std::size_t takeBuffered(std::span<std::uint8_t> into);
    bool fill();

    const int descriptor_;
    const int stopDescriptor_;
    std::vector<std::uint8_t> buffer_;
    std::size_t next_ = 0;  // first byte of the buffer that was not taken yet
    bool wasStopped_ = false;
    std::string problem_;
};

}  // namespace pavo::tools
