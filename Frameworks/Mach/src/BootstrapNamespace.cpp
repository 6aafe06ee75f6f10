#include "BootstrapNamespace.h"

#include <fcntl.h>
#include <servers/bootstrap.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace pavo::mach {

namespace {

constexpr const char* kSystemFolder = "/run/pavo";

std::string environment(const char* name)
{
    const char* const value = secure_getenv(name);
    return value ? value : "";
}

bool isFolderOfOurs(const std::string& path)
{
    struct stat status{};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

std::string userFolder()
{
    const auto runtimeFolder = environment("XDG_RUNTIME_DIR");
    if (runtimeFolder.starts_with('/') && isFolderOfOurs(runtimeFolder)) return runtimeFolder + "/pavo";
    const auto user = std::to_string(geteuid());
    if (isFolderOfOurs("/run/user/" + user)) return "/run/user/" + user + "/pavo";
    return "/tmp/pavo-" + user;
}

// Makes the folder and the folders above it that are missing.
void makeFolder(const std::string& path)
{
    for (auto end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1))
        mkdir(path.substr(0, end).c_str(), 0700);
    // Everybody may look a name of the system up; only root may add one.
    mkdir(path.c_str(), path == kSystemFolder ? 0755 : 0700);
}

}  // namespace

std::optional<Namespace> namespaceOf(mach_port_t port)
{
    for (const auto where : {Namespace::Process, Namespace::User, Namespace::System})
        if (portOf(where) == port) return where;
    return std::nullopt;
}

mach_port_t portOf(Namespace where)
{
    switch (where) {
    case Namespace::Process:
        return kProcessNamespacePort;
    case Namespace::User:
        return kUserNamespacePort;
    case Namespace::System:
        break;
    }
    return kSystemNamespacePort;
}

Namespace parentOf(Namespace where)
{
    return where == Namespace::Process ? Namespace::User : Namespace::System;
}

std::string folderOf(Namespace where)
{
    const auto moved = environment("PAVO_BOOTSTRAP_DIR");
    if (where == Namespace::System) return moved.empty() ? kSystemFolder : moved + "/system";
    const auto user = moved.empty() ? userFolder() : moved + "/user";
    return where == Namespace::User ? user : user + "/process-" + std::to_string(getpid());
}

TrustedOwner trustedOwnerIn(Namespace where)
{
    const bool isRoots = where == Namespace::System && environment("PAVO_BOOTSTRAP_DIR").empty();
    return isRoots ? TrustedOwner::root : TrustedOwner::rootOrSelf;
}

UniqueFd openNamespace(Namespace where, bool create)
{
    const auto path = folderOf(where);
    if (where != Namespace::System) return openFolder(path, create);
    if (create) makeFolder(path);
    auto folder = openTrusted(path, trustedOwnerIn(where));
    struct stat status{};
    if (!folder.isValid() || fstat(folder.get(), &status) != 0) return {};
    if (S_ISDIR(status.st_mode)) return folder;
    errno = ENOTDIR;
    return {};
}

UniqueFd openFolder(const std::string& path, bool create)
{
    if (create) makeFolder(path);
    UniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder.isValid()) return {};
    struct stat status{};
    if (fstat(folder.get(), &status) != 0) return {};
    // Who may write here could put sockets of theirs under names that others trust.
    if (!isTrusted(status.st_uid, TrustedOwner::rootOrSelf) || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        errno = EPERM;
        return {};
    }
    return folder;
}

bool isUsableName(std::string_view name)
{
    if (name.empty() || name.size() >= BOOTSTRAP_MAX_NAME_LEN) return false;
    if (name.starts_with('.') || name.starts_with("process-")) return false;
    if (name.ends_with(".sock") || name.ends_with(".lock")) return false;
    return std::none_of(name.begin(), name.end(), [](unsigned char c) { return c < 0x20 || c == '/'; });
}

}  // namespace pavo::mach
