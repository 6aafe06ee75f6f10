#include "Platform/Support/linux/TrustedPath.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace pavo {

namespace {

enum class Position : unsigned char { onTheWay, atTheEnd };

// 0, or the reason for which the file must not be used.
int objectionTo(int file, Position position, TrustedOwner trusted)
{
    struct stat status{};
    if (fstat(file, &status) != 0) return errno;
    if (position == Position::atTheEnd && S_ISLNK(status.st_mode)) return ELOOP;
    if (position == Position::onTheWay && !S_ISDIR(status.st_mode)) return ENOTDIR;
    if (!isTrusted(status.st_uid, trusted)) return EPERM;
    const bool isOpenToOthers = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !S_ISSOCK(status.st_mode);
    const bool isSticky = position == Position::onTheWay && (status.st_mode & S_ISVTX) != 0;
    return isOpenToOthers && !isSticky ? EPERM : 0;
}

UniqueFd refuse(int reason)
{
    errno = reason;
    return {};
}

}  // namespace

bool isTrusted(uid_t owner, TrustedOwner trusted)
{
    return owner == 0 || (trusted == TrustedOwner::rootOrSelf && owner == geteuid());
}

UniqueFd openTrusted(const std::string& path, TrustedOwner trusted)
{
    if (!path.starts_with('/')) return refuse(EINVAL);
    UniqueFd file(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    auto start = path.find_first_not_of('/');
    while (file.isValid() && start != std::string::npos) {
        if (const int reason = objectionTo(file.get(), Position::onTheWay, trusted)) return refuse(reason);
        const auto end = std::min(path.find('/', start), path.size());
        const auto name = path.substr(start, end - start);
        // What lies above has been left behind; a path that goes back there is nobody's honest one.
        if (name == "..") return refuse(EINVAL);
        file = UniqueFd(openat(file.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        start = path.find_first_not_of('/', end);
    }
    if (!file.isValid()) return {};
    if (const int reason = objectionTo(file.get(), Position::atTheEnd, trusted)) return refuse(reason);
    return file;
}

}  // namespace pavo
