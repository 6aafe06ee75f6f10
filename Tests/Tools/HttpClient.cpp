#include "Tests/Tools/HttpClient.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>

namespace pavo::test {

namespace {

// Only against a hang: the machine may be busy.
constexpr int kDeadlineMs = 60'000;

}  // namespace

HttpConnection::HttpConnection(std::uint16_t port, int receiveBufferBytes)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    if (receiveBufferBytes > 0)
        ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &receiveBufferBytes, sizeof receiveBufferBytes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
}

bool HttpConnection::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool HttpConnection::readSome(std::string& text)
{
    pollfd waiting{socket_.get(), POLLIN, 0};
    if (isClosed_ || ::poll(&waiting, 1, kDeadlineMs) <= 0) return false;
    std::array<char, 65536> buffer{};
    const ssize_t count = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
    isClosed_ = count <= 0;
    if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
    return count > 0;
}

std::string HttpAnswer::header(const std::string& name) const
{
    const auto begin = head.find("\r\n" + name + ": ");
    if (begin == std::string::npos) return {};
    const auto value = begin + name.size() + 4;
    return head.substr(value, head.find("\r\n", value) - value);
}

HttpAnswer parseAnswer(const std::string& text)
{
    HttpAnswer answer;
    if (!text.starts_with("HTTP/1.") || text.size() < 12) return answer;
    answer.status = std::atoi(text.c_str() + 9);
    const auto end = text.find("\r\n\r\n");
    answer.head = text.substr(0, end) + "\r\n";
    if (end != std::string::npos) answer.body = text.substr(end + 4);
    return answer;
}

HttpAnswer ask(std::uint16_t port, const std::string& method, const std::string& path,
               const std::string& headers, const std::string& body)
{
    HttpConnection connection(port);
    std::string request = method + " " + path + " HTTP/1.1\r\nConnection: close\r\n" + headers;
    if (headers.find("Host:") == std::string::npos) request += "Host: localhost\r\n";
    if (!body.empty()) request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    connection.send(request + "\r\n" + body);
    return parseAnswer(connection.readAll());
}

}  // namespace pavo::test
