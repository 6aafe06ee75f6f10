#pragma once

#include <sys/types.h>

#include <string>

#include "Platform/Support/UniqueFd.h"

namespace pavo {

// Whose files are believed: the administrator's, or those of this process's user, too.
enum class TrustedOwner : unsigned char { root, rootOrSelf };

bool isTrusted(uid_t owner, TrustedOwner trusted);

// Opens what an absolute path leads to, for looking at it and for use as a folder (O_PATH), where nobody else
// could have put it there, or could put something else in its place: it and every folder above it belong to a
// trusted owner, nobody else may write to them, and no link is on the way. What was opened is what was looked
// at, whatever happens to the path meanwhile.
//
// Folders above it may be open to everybody where only the owner of a file may move it (such as /tmp), and a
// socket may be written to by everybody: that is how it is connected to.
//
// Invalid, with errno set, where it is not so: EPERM for an owner or a mode, ELOOP for a link at the end,
// ENOTDIR for one on the way, else why it could not be opened.
UniqueFd openTrusted(const std::string& path, TrustedOwner trusted);

}  // namespace pavo
