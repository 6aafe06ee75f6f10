#include <fcntl.h>
#include <mach/port_private.h>
#include <servers/bootstrap.h>
#include <servers/bootstrap_private.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string>
#include <utility>

#include "BootstrapNamespace.h"
#include "Descriptor.h"
#include "PortTable.h"

namespace {

using pavo::UniqueFd;
using pavo::mach::Namespace;

// A name may fill its buffer and have no NUL.
std::string textOf(const char* name)
{
    return std::string(name, strnlen(name, BOOTSTRAP_MAX_NAME_LEN));
}

struct stat statusOf(const UniqueFd& file)
{
    struct stat status{};  // of no kind and nobody's where the file is not there
    if (!file.isValid() || fstat(file.get(), &status) != 0) return {};
    return status;
}

UniqueFd openTarget(int folder, const UniqueFd& link, Namespace where)
{
    char target[PATH_MAX];
    const auto length = readlinkat(link.get(), "", target, sizeof target - 1);
    if (length < 0) return {};
    target[length] = '\0';
    if (where == Namespace::System) return pavo::openTrusted(target, pavo::mach::trustedOwnerIn(where));
    return UniqueFd(openat(folder, target, O_PATH | O_CLOEXEC));
}

// The socket that a name leads to. Invalid where there is none, or where somebody else could have put it
// there. Each file is opened before it is looked at, so what was looked at is what is used.
UniqueFd openSocketFile(int folder, const std::string& name, Namespace where)
{
    const auto trusted = pavo::mach::trustedOwnerIn(where);
    UniqueFd file(openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (const auto status = statusOf(file); S_ISLNK(status.st_mode)) {
        if (!pavo::isTrusted(status.st_uid, trusted)) return {};
        file = openTarget(folder, file, where);
    }
    const auto status = statusOf(file);
    if (!S_ISSOCK(status.st_mode) || !pavo::isTrusted(status.st_uid, trusted)) return {};
    return file;
}

bool isTrustedPeer(int connection, Namespace where)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           pavo::isTrusted(peer.uid, pavo::mach::trustedOwnerIn(where));
}

UniqueFd connectTo(const UniqueFd& folder, const std::string& name, Namespace where)
{
    if (!folder.isValid()) return {};
    const auto file = openSocketFile(folder.get(), name, where);
    if (!file.isValid()) return {};
    // Non-blocking at first: a service that takes no connections must not hold its callers.
    auto connection = pavo::mach::withoutStandardNumbers(
        UniqueFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)));
    if (!connection.isValid()) return {};
    const auto address = pavo::mach::addressIn(file.get(), "");
    if (connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return {};
    if (!isTrustedPeer(connection.get(), where)) return {};
    if (fcntl(connection.get(), F_SETFL, 0) != 0) return {};
    return connection;
}

}  // namespace

mach_port_t bootstrap_port = pavo::mach::kProcessNamespacePort;

kern_return_t bootstrap_parent(mach_port_t bp, mach_port_t* parent_port)
{
    const auto where = pavo::mach::namespaceOf(bp);
    if (!where || !parent_port) return KERN_INVALID_ARGUMENT;
    *parent_port = pavo::mach::portOf(pavo::mach::parentOf(*where));
    return BOOTSTRAP_SUCCESS;
}

kern_return_t bootstrap_register(mach_port_t bp, name_t service_name, mach_port_t sp)
{
    const auto where = pavo::mach::namespaceOf(bp);
    if (!where || !service_name || !MACH_PORT_VALID(sp)) return KERN_INVALID_ARGUMENT;
    const auto name = textOf(service_name);
    if (!pavo::mach::isUsableName(name)) return KERN_INVALID_ARGUMENT;
    return pavo::mach::PortTable::shared().registerName(*where, name, sp);
}

kern_return_t bootstrap_look_up(mach_port_t bp, const name_t service_name, mach_port_t* sp)
{
    const auto first = pavo::mach::namespaceOf(bp);
    if (!first || !service_name || !sp) return KERN_INVALID_ARGUMENT;
    const auto name = textOf(service_name);
    if (!pavo::mach::isUsableName(name)) return BOOTSTRAP_UNKNOWN_SERVICE;
    for (auto where = *first;; where = pavo::mach::parentOf(where)) {
        auto connection = connectTo(pavo::mach::openNamespace(where, false), name, where);
        if (connection.isValid()) {
            *sp = static_cast<mach_port_t>(connection.release());
            return BOOTSTRAP_SUCCESS;
        }
        if (where == Namespace::System) return BOOTSTRAP_UNKNOWN_SERVICE;
    }
}

mach_port_t bootstrap_system_port(void)
{
    return pavo::mach::kSystemNamespacePort;
}

kern_return_t bootstrap_name_of(mach_port_t sp, name_t service_name)
{
    if (!service_name) return KERN_INVALID_ARGUMENT;
    const auto name = pavo::mach::PortTable::shared().nameOf(sp);
    if (name.empty()) return KERN_INVALID_NAME;
    // Names that can be registered are shorter than the buffer.
    name.copy(service_name, BOOTSTRAP_MAX_NAME_LEN - 1);
    service_name[name.size()] = '\0';
    return BOOTSTRAP_SUCCESS;
}

kern_return_t mach_port_connect(mach_port_name_t receive, mach_port_name_t* connection)
{
    if (!connection) return KERN_INVALID_ARGUMENT;
    const auto path = pavo::mach::PortTable::shared().pathOf(receive);
    if (path.empty()) return KERN_INVALID_NAME;
    const auto end = path.rfind('/');
    auto connected = connectTo(pavo::mach::openFolder(path.substr(0, end), false), path.substr(end + 1),
                               Namespace::Process);
    if (!connected.isValid()) return KERN_FAILURE;
    *connection = static_cast<mach_port_name_t>(connected.release());
    return KERN_SUCCESS;
}

const char* bootstrap_strerror(kern_return_t r)
{
    switch (r) {
    case BOOTSTRAP_SUCCESS:
        return "Success";
    case BOOTSTRAP_NOT_PRIVILEGED:
        return "Permission denied";
    case BOOTSTRAP_NAME_IN_USE:
        return "Name already in use";
    case BOOTSTRAP_UNKNOWN_SERVICE:
        return "Unknown service name";
    case BOOTSTRAP_SERVICE_ACTIVE:
        return "Service already active";
    case BOOTSTRAP_BAD_COUNT:
        return "Too many names in one request";
    case BOOTSTRAP_NO_MEMORY:
        return "Out of memory";
    case BOOTSTRAP_NO_CHILDREN:
        return "No children";
    default:
        return "Unknown bootstrap error";
    }
}
