#include "Tools/Doctor/LocalSocket.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace pavo::tools {

UniqueFd connectTo(const std::string& path)
{
    // By its descriptor: paths may be longer than an address takes.
    const UniqueFd file(::open(path.c_str(), O_PATH | O_CLOEXEC));
    if (!file.isValid()) return {};
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.isValid()) return {};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d", file.get());
    const bool isConnected =
        ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return isConnected ? std::move(socket) : UniqueFd();
}

}  // namespace pavo::tools
