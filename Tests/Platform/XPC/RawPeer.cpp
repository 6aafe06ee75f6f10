#include "Tests/Platform/XPC/RawPeer.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace pavo::test {

namespace {

constexpr int kPatienceMilliseconds = 20'000;

void pad(std::string& bytes, std::size_t alignment)
{
    bytes.resize((bytes.size() + alignment - 1) / alignment * alignment);
}

void addField(std::string& fields, std::uint8_t code, char type, const std::string& value)
{
    pad(fields, 8);
    fields += static_cast<char>(code);
    fields += {'\1', type, '\0'};
    if (type == 'g') {
        fields += static_cast<char>(value.size());
    } else if (type != 'u') {
        pad(fields, 4);
        fields += little(static_cast<std::uint32_t>(value.size()));
    }
    fields += value;
    if (type != 'u') fields += '\0';
}

bool isReadable(int socket)
{
    pollfd waiting{socket, POLLIN, 0};
    return ::poll(&waiting, 1, kPatienceMilliseconds) == 1;
}

}  // namespace

std::string RawCall::bytes() const
{
    std::string fields;
    if (!path.empty()) addField(fields, 1, 'o', path);
    if (!interface.empty()) addField(fields, 2, 's', interface);
    if (!member.empty()) addField(fields, 3, 's', member);
    if (!errorName.empty()) addField(fields, 4, 's', errorName);
    if (replySerial > 0) addField(fields, 5, 'u', little(replySerial));
    if (!signature.empty()) addField(fields, 8, 'g', signature);
    if (descriptorCount > 0) addField(fields, 9, 'u', little(descriptorCount));
    if (!unknownField.empty()) addField(fields, 200, 's', unknownField);
    std::string message = {'l', static_cast<char>(type), static_cast<char>(flags), '\1'};
    message += little(static_cast<std::uint32_t>(body.size()));
    message += little(serial);
    message += little(static_cast<std::uint32_t>(fields.size()));
    message += fields;
    pad(message, 8);
    return message + body;
}

std::string frameBody()
{
    std::string body = little(std::uint32_t{0});
    pad(body, 8);
    for (int i = 0; i < 3; ++i)
        body += little(std::int64_t{1000} + i) + little(std::int32_t{60} + i) + little(std::uint32_t{1}) +
                little(std::int64_t{7} + i);
    return body;
}

RawCall frameCall(const std::string& interface, const std::string& member)
{
    RawCall call;
    call.interface = interface;
    call.member = member;
    call.signature = "h((xiux)(xiux)(xiux))";
    call.body = frameBody();
    call.descriptorCount = 1;
    return call;
}

RawCall answerTo(std::uint32_t serial, const std::string& signature, const std::string& body)
{
    RawCall answer;
    answer.type = 2;  // method return
    answer.path.clear();
    answer.replySerial = serial;
    answer.signature = signature;
    answer.body = body;
    return answer;
}

std::uint32_t serialOf(const std::string& message)
{
    std::uint32_t serial = 0;
    if (message.size() >= 12) std::memcpy(&serial, message.data() + 8, sizeof(serial));
    return serial;
}

bool RawPeer::authenticate()
{
    std::string hex;
    for (const char digit : std::to_string(::geteuid()))
        hex += {'3', digit};
    return send(std::string(1, '\0')) && exchange("AUTH EXTERNAL " + hex + "\r\n", "OK ") &&
           exchange("NEGOTIATE_UNIX_FD\r\n", "AGREE_UNIX_FD") && send("BEGIN\r\n");
}

bool RawPeer::answerAuthentication()
{
    // NUL, AUTH EXTERNAL, DATA, NEGOTIATE_UNIX_FD, BEGIN
    std::string told;
    while (told.find("BEGIN\r\n") == std::string::npos) {
        const auto byte = receive(1);
        if (byte.empty()) return false;
        told += byte;
    }
    return told == std::string("\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n", 48) &&
           send("DATA\r\nOK 0123456789abcdef0123456789abcdef\r\nAGREE_UNIX_FD\r\n");
}

bool RawPeer::exchange(const std::string& line, const std::string& expectedBeginning)
{
    if (!send(line)) return false;
    std::string answer;
    while (!answer.ends_with("\r\n")) {
        const auto byte = receive(1);
        if (byte.empty()) return false;
        answer += byte;
    }
    return answer.starts_with(expectedBeginning);
}

bool RawPeer::send(const std::string& bytes, std::span<const int> descriptors)
{
    iovec part{const_cast<char*>(bytes.data()), bytes.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(64 * sizeof(int))> control{};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    if (!descriptors.empty()) {
        header.msg_control = control.data();
        header.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
        auto* rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(descriptors.size_bytes());
        std::memcpy(CMSG_DATA(rights), descriptors.data(), descriptors.size_bytes());
    }
    return ::sendmsg(socket_.get(), &header, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::string RawPeer::receive(std::size_t size)
{
    std::string bytes;
    while (bytes.size() < size && isReadable(socket_.get())) {
        std::string part(size - bytes.size(), '\0');
        iovec room{part.data(), part.size()};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(64 * sizeof(int))> control{};
        msghdr header{};
        header.msg_iov = &room;
        header.msg_iovlen = 1;
        header.msg_control = control.data();
        header.msg_controllen = control.size();
        const auto count = ::recvmsg(socket_.get(), &header, MSG_CMSG_CLOEXEC);
        if (count <= 0) break;
        bytes += part.substr(0, static_cast<std::size_t>(count));
        for (auto* rights = CMSG_FIRSTHDR(&header); rights; rights = CMSG_NXTHDR(&header, rights)) {
            std::vector<int> received((rights->cmsg_len - CMSG_LEN(0)) / sizeof(int));
            std::memcpy(received.data(), CMSG_DATA(rights), received.size() * sizeof(int));
            for (const int descriptor : received)
                descriptors_.emplace_back(descriptor);
        }
    }
    return bytes;
}

std::string RawPeer::receiveMessage()
{
    const auto header = receive(16);
    if (header.size() < 16) return header;
    const auto number = [&header](std::size_t offset) {
        std::uint32_t value = 0;
        std::memcpy(&value, header.data() + offset, sizeof(value));
        return value;
    };
    return header + receive((number(12) + 7) / 8 * 8 + number(4));
}

bool RawPeer::waitForEnd()
{
    std::array<char, 4096> ignored;
    while (isReadable(socket_.get())) {
        const auto count = ::recv(socket_.get(), ignored.data(), ignored.size(), 0);
        if (count == 0 || (count < 0 && errno == ECONNRESET)) return true;
        if (count < 0) return false;
    }
    return false;
}

}  // namespace pavo::test
