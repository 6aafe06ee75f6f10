#include "Tools/ByteReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace pavo::tools {
namespace {

constexpr std::size_t kBufferBytes = 64 * 1024;

}  // namespace

ByteReader::ByteReader(int descriptor, int stopDescriptor)
    : descriptor_(descriptor),
      stopDescriptor_(stopDescriptor)
{}

// What one read gives; 0 at the end, on failure and when stopped.
std::size_t ByteReader::readSome(std::span<std::uint8_t> into)
{
    if (wasStopped_ || !problem_.empty() || into.empty()) return 0;
    std::array<pollfd, 2> waiting = {{{descriptor_, POLLIN, 0}, {stopDescriptor_, POLLIN, 0}}};
    for (;;) {
        if (::poll(waiting.data(), waiting.size(), -1) < 0) {
            if (errno == EINTR) continue;
            problem_ = std::strerror(errno);
            return 0;
        }
        if (waiting[1].revents) {
            wasStopped_ = true;
            return 0;
        }
        const ssize_t count = ::read(descriptor_, into.data(), into.size());
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno == EINTR || errno == EAGAIN) continue;
        problem_ = std::strerror(errno);
        return 0;
    }
}

std::size_t ByteReader::takeBuffered(std::span<std::uint8_t> into)
{
    const std::size_t count = std::min(into.size(), buffer_.size() - next_);
    std::copy_n(buffer_.begin() + static_cast<std::ptrdiff_t>(next_), count, into.begin());
    next_ += count;
    return count;
}

// Appends what the next read gives to the buffer.
bool ByteReader::fill()
{
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(next_));
    next_ = 0;
    const std::size_t kept = buffer_.size();
    buffer_.resize(kept + kBufferBytes);
    const std::size_t count = readSome(std::span(buffer_).subspan(kept));
    buffer_.resize(kept + count);
    return count > 0;
}

std::size_t ByteReader::read(std::span<std::uint8_t> into)
{
    std::size_t done = takeBuffered(into);
    while (done < into.size()) {
        const std::size_t count = readSome(into.subspan(done));
        if (count == 0) break;
        done += count;
    }
    return done;
}

std::size_t ByteReader::skip(std::size_t count)
{
    std::vector<std::uint8_t> dropped(std::min(count, kBufferBytes));
    std::size_t done = 0;
    while (done < count) {
        const std::size_t wanted = std::min(dropped.size(), count - done);
        const std::size_t got = read(std::span(dropped).first(wanted));
        done += got;
        if (got < wanted) break;
    }
    return done;
}

std::optional<std::string> ByteReader::readLine(std::size_t limit)
{
    std::size_t seen = 0;
    for (;;) {
        const auto begin = buffer_.begin() + static_cast<std::ptrdiff_t>(next_);
        const auto end = std::find(begin + static_cast<std::ptrdiff_t>(seen), buffer_.end(), '\n');
        const auto length = static_cast<std::size_t>(end - begin);
        if (length > limit) return std::nullopt;
        if (end != buffer_.end()) {
            next_ += length + 1;
            return std::string(begin, end);
        }
        seen = length;
        if (!fill()) return std::nullopt;
    }
}

bool ByteReader::startsWith(std::string_view text)
{
    while (buffer_.size() - next_ < text.size())
        if (!fill()) return false;
    return std::equal(text.begin(), text.end(), buffer_.begin() + static_cast<std::ptrdiff_t>(next_),
                      [](char c, std::uint8_t byte) { return static_cast<std::uint8_t>(c) == byte; });
}

}  // namespace pavo::tools
