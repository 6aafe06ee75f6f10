#include "PortTable.h"

#include <fcntl.h>
#include <servers/bootstrap.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

#include "Descriptor.h"

namespace pavo::mach {

namespace {

// More sockets than one process ever leaves behind: a folder that is full of them is not searched for ever.
constexpr unsigned int kMaxSocketNumber = 1'000'000;

kern_return_t codeOfErrno()
{
    return errno == ENOMEM || errno == ENOSPC || errno == EMFILE || errno == ENFILE ? KERN_RESOURCE_SHORTAGE
                                                                                    : KERN_FAILURE;
}

bool isSameFile(int descriptor, int folder, const std::string& name)
{
    struct stat open{};
    struct stat named{};
    return fstat(descriptor, &open) == 0 && fstatat(folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// Takes the lock of a name. Invalid, with errno EWOULDBLOCK, while another registration holds it.
UniqueFd lockName(int folder, const std::string& lockFile)
{
    for (;;) {
        UniqueFd lock(openat(folder, lockFile.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!lock.isValid() || flock(lock.get(), LOCK_EX | LOCK_NB) != 0) return {};
        // The last owner removes the file before it lets go of the lock: a lock on a removed file is
        // nobody's.
        if (isSameFile(lock.get(), folder, lockFile)) return lock;
    }
}

// Puts a symbolic link at `name` in one step, whatever was there.
bool placeLink(int folder, const std::string& name, const std::string& target)
{
    const auto temporary = "." + name + ".new";
    unlinkat(folder, temporary.c_str(), 0);  // of an owner that died half way; the lock is ours
    if (symlinkat(target.c_str(), folder, temporary.c_str()) != 0) return false;
    if (renameat(folder, temporary.c_str(), folder, name.c_str()) == 0) return true;
    const int reason = errno;
    unlinkat(folder, temporary.c_str(), 0);
    errno = reason;
    return false;
}

std::optional<std::string> readLink(const std::string& path)
{
    char target[4096];
    const auto length = readlink(path.c_str(), target, sizeof target);
    if (length < 0) return std::nullopt;
    return std::string(target, static_cast<std::size_t>(length));
}

}  // namespace

PortTable& PortTable::shared()
{
    static auto& table = *new PortTable;
    return table;
}

PortTable::PortTable()
{
    std::atexit([] { shared().removeFiles(); });
}

kern_return_t PortTable::allocate(mach_port_name_t& name)
{
    const auto path = folderOf(Namespace::Process);
    const std::lock_guard lock(mutex_);
    const auto folder = openFolder(path, true);
    if (!folder.isValid()) return codeOfErrno();
    folders_.emplace(getpid(), path);

    auto listener =
        withoutStandardNumbers(UniqueFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)));
    if (!listener.isValid()) return codeOfErrno();
    fchmod(listener.get(), 0600);  // the mode that the socket's file gets
    // A process that was killed left its files behind, and its number may now be ours: go past them.
    std::string file;
    do {
        if (++lastNumber_ > kMaxSocketNumber) return KERN_NO_SPACE;
        file = std::to_string(lastNumber_) + ".sock";
        const auto address = addressIn(folder.get(), file);
        if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) break;
        if (errno != EADDRINUSE) return codeOfErrno();
    } while (true);
    Right right{getpid(), std::move(listener), path + "/" + file, {}};
    if (listen(right.listener.get(), SOMAXCONN) != 0) {
        const auto code = codeOfErrno();
        withdraw(right);
        return code;
    }
    name = static_cast<mach_port_name_t>(right.listener.get());
    rights_.insert_or_assign(name, std::move(right));
    return KERN_SUCCESS;
}

bool PortTable::deallocate(mach_port_name_t name)
{
    const std::lock_guard lock(mutex_);
    const auto found = rights_.find(name);
    if (found == rights_.end()) return false;
    withdraw(found->second);
    rights_.erase(found);
    return true;
}

std::string PortTable::pathOf(mach_port_name_t name)
{
    const std::lock_guard lock(mutex_);
    const auto found = rights_.find(name);
    return found == rights_.end() ? std::string() : found->second.path;
}

std::string PortTable::nameOf(mach_port_name_t name)
{
    const std::lock_guard lock(mutex_);
    const auto found = rights_.find(name);
    if (found == rights_.end() || found->second.registrations.empty()) return {};
    return found->second.registrations.back().name;
}

kern_return_t PortTable::registerName(Namespace where, const std::string& name, mach_port_t port)
{
    const std::lock_guard lock(mutex_);
    const auto found = rights_.find(port);
    if (found == rights_.end()) return KERN_INVALID_RIGHT;
    const auto folder = openNamespace(where, true);
    if (!folder.isValid()) return BOOTSTRAP_NOT_PRIVILEGED;
    auto nameLock = lockName(folder.get(), name + ".lock");
    if (!nameLock.isValid())
        return errno == EWOULDBLOCK ? BOOTSTRAP_SERVICE_ACTIVE : BOOTSTRAP_NOT_PRIVILEGED;
    if (!placeLink(folder.get(), name, found->second.path)) {
        unlinkat(folder.get(), (name + ".lock").c_str(), 0);
        return BOOTSTRAP_NOT_PRIVILEGED;
    }
    found->second.registrations.push_back({folderOf(where), name, std::move(nameLock)});
    return BOOTSTRAP_SUCCESS;
}

// Removes the files of a right. Its names go first, so that nobody is sent to a path that is gone, and each
// lock's file goes while the lock is held, so that it is never removed from under the next owner.
void PortTable::withdraw(Right& right)
{
    if (right.process != getpid()) return;
    for (const auto& registration : right.registrations) {
        const auto path = registration.folder + "/" + registration.name;
        if (readLink(path) == right.path) unlink(path.c_str());
        unlink((path + ".lock").c_str());
    }
    unlink(right.path.c_str());
    right.registrations.clear();
}

void PortTable::removeFiles()
{
    const std::lock_guard lock(mutex_);
    for (auto& [name, right] : rights_)
        withdraw(right);
    for (const auto& [process, folder] : folders_)
        if (process == getpid()) rmdir(folder.c_str());
}

}  // namespace pavo::mach
