#include "Platform/XPC/linux/MessageReader.h"

#include "Platform/XPC/linux/DescriptorCount.h"
#include "Platform/XPC/linux/WireLimits.h"
#include "Platform/XPC/linux/WireNumber.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace xpc {

namespace {

// D-Bus: the fixed part of a message's header, and where its lengths are.
constexpr std::size_t kHeaderBytes = 16;
constexpr std::size_t kVersionOffset = 3;
constexpr std::size_t kBodyLengthOffset = 4;
constexpr std::size_t kFieldsLengthOffset = 12;
constexpr std::byte kLittleEndian{'l'};
constexpr std::byte kBigEndian{'B'};
constexpr std::byte kProtocolVersion{1};

MessageReader::Result resultOfErrno()
{
    return errno == EAGAIN || errno == EINTR ? MessageReader::Result::incomplete
                                             : MessageReader::Result::ended;
}

constexpr std::size_t roundUpTo8(std::size_t size)
{
    return (size + 7) / 8 * 8;
}

}  // namespace

MessageReader::Result MessageReader::readLine(int socket)
{
    // Looked at before it is taken: what follows the line may be a message, with descriptors of its own.
    std::array<std::byte, kMaxAuthenticationLineBytes> waiting;
    const auto room = kMaxAuthenticationLineBytes - bytes_.size();
    const auto count = recv(socket, waiting.data(), room, MSG_PEEK | MSG_DONTWAIT);
    if (count == 0) return Result::ended;
    if (count < 0) return resultOfErrno();
    const auto end = waiting.begin() + count;
    const auto newline = std::find(waiting.begin(), end, std::byte{'\n'});
    const auto wanted = static_cast<std::size_t>(newline - waiting.begin()) + (newline == end ? 0 : 1);
    // Descriptors that come with a line have nowhere to go: the kernel closes them.
    const auto taken = recv(socket, waiting.data(), wanted, MSG_DONTWAIT);
    if (taken != static_cast<ssize_t>(wanted)) return Result::ended;
    bytes_.insert(bytes_.end(), waiting.begin(), waiting.begin() + taken);
    if (newline != end) return Result::complete;
    if (bytes_.size() == kMaxAuthenticationLineBytes) return reject("authentication line too long");
    return Result::incomplete;
}

MessageReader::Result MessageReader::readMessage(int socket)
{
    if (bytes_.size() < kHeaderBytes) {
        const auto result = receive(socket, kHeaderBytes);
        if (result != Result::complete) return result;
        if (!measure()) return Result::rejected;
    }
    const auto result = receive(socket, messageSize_);
    if (result == Result::complete && !ownsDescriptors()) return Result::rejected;
    return result;
}

void MessageReader::reset()
{
    bytes_.clear();
    descriptors_.clear();
    messageSize_ = 0;
    bodyOffset_ = 0;
}

bool MessageReader::isBigEndian() const
{
    return !bytes_.empty() && bytes_.front() == kBigEndian;
}

MessageReader::Result MessageReader::receive(int socket, std::size_t wantedSize)
{
    while (bytes_.size() < wantedSize) {
        const auto before = bytes_.size();
        bytes_.resize(wantedSize);
        iovec part{bytes_.data() + before, wantedSize - before};
        // Room for as many descriptors as a message may have: more of them are cut off, and reported.
        alignas(cmsghdr) std::array<char, CMSG_SPACE(kMaxMessageDescriptors * sizeof(int))> control;
        msghdr header{};
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
        const auto count = recvmsg(socket, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        bytes_.resize(before + (count > 0 ? static_cast<std::size_t>(count) : 0));
        if (count == 0) return Result::ended;
        if (count < 0) return resultOfErrno();
        if (!takeDescriptors(header)) return Result::rejected;
    }
    return Result::complete;
}

bool MessageReader::takeDescriptors(const msghdr& header)
{
    for (auto* part = CMSG_FIRSTHDR(&header); part; part = CMSG_NXTHDR(const_cast<msghdr*>(&header), part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
        const auto count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(part) + i * sizeof(int), sizeof(int));
            descriptors_.emplace_back(descriptor);
        }
    }
    if ((header.msg_flags & MSG_CTRUNC) != 0) {
        reject("descriptors were cut off: too many in the message, or none left in this process");
        return false;
    }
    if (descriptors_.size() > kMaxMessageDescriptors) {
        reject("too many descriptors");
        return false;
    }
    return true;
}

bool MessageReader::measure()
{
    // The library knows another version, too, whose messages are laid out in another way.
    if ((bytes_.front() != kLittleEndian && bytes_.front() != kBigEndian) ||
        bytes_[kVersionOffset] != kProtocolVersion) {
        reject("not a D-Bus message");
        return false;
    }
    // 64-bit sums: the lengths are the peer's, up to 4 GiB each.
    const std::uint64_t fields = headerNumber(kFieldsLengthOffset);
    const std::uint64_t body = headerNumber(kBodyLengthOffset);
    const std::uint64_t bodyOffset = kHeaderBytes + roundUpTo8(fields);
    if (bodyOffset + body > kMaxMessageBytes) {
        reject("message too large");
        return false;
    }
    bodyOffset_ = static_cast<std::size_t>(bodyOffset);
    messageSize_ = static_cast<std::size_t>(bodyOffset + body);
    return true;
}

// As many descriptors have to come with a message as its header tells.
bool MessageReader::ownsDescriptors()
{
    const auto fields = std::span(bytes_).subspan(kHeaderBytes, headerNumber(kFieldsLengthOffset));
    const auto count = takeDescriptorCount(fields, isBigEndian());
    if (!count)
        reject("broken header");
    else if (*count != descriptors_.size())
        reject("not as many descriptors as the header tells");
    return count == descriptors_.size();
}

std::uint32_t MessageReader::headerNumber(std::size_t offset) const
{
    return wireNumber<std::uint32_t>(std::span(bytes_).subspan(offset, sizeof(std::uint32_t)), isBigEndian());
}

MessageReader::Result MessageReader::reject(const char* reason)
{
    rejection_ = reason;
    return Result::rejected;
}

}  // namespace xpc
