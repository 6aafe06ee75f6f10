#include "Tools/LoopbackListener.h"

#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <utility>

namespace pavo::tools {
namespace {

constexpr int kBacklog = 32;

sockaddr_in loopback4(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

sockaddr_in6 loopback6(std::uint16_t port)
{
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    address.sin6_addr = IN6ADDR_LOOPBACK_INIT;
    return address;
}

// Invalid, with errno, where it cannot be done.
template <typename Address>
UniqueFd listenAt(const Address& address, int family)
{
    UniqueFd socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.isValid()) return socket;
    const int yes = 1;
    // A preview that is started again does not have to wait for connections of the last one to fade.
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (family == AF_INET6) ::setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof yes);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket.get(), kBacklog) != 0)
        return UniqueFd();
    return socket;
}

Problem problemWith(std::uint16_t port, int error)
{
    const std::string number = std::to_string(port);
    if (error == EADDRINUSE)
        return {"port " + number + " is in use by another program; --port names another one, 0 any free one"};
    if (error == EACCES)
        return {"port " + number + " is not allowed to this user; --port names another one, from 1024 up"};
    return {"cannot wait for connections at port " + number + ": " + std::strerror(error)};
}

}  // namespace

Result<LoopbackListener> LoopbackListener::open(std::uint16_t port)
{
    LoopbackListener listener{{}, port};
    auto first = listenAt(loopback4(port), AF_INET);
    if (!first.isValid()) return problemWith(port, errno);
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    if (::getsockname(first.get(), reinterpret_cast<sockaddr*>(&bound), &size) != 0)
        return problemWith(port, errno);
    listener.port = ntohs(bound.sin_port);
    listener.sockets.push_back(std::move(first));

    auto second = listenAt(loopback6(listener.port), AF_INET6);
    // Somebody else at ::1 would get those who ask for localhost, at a port that was chosen by number.
    if (!second.isValid() && errno == EADDRINUSE && port != 0) return problemWith(port, errno);
    if (second.isValid()) listener.sockets.push_back(std::move(second));
    return listener;
}

}  // namespace pavo::tools
