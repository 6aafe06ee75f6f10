#pragma once

#include <mach/port.h>

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Support/UniqueFd.h"

// The folders in which names and sockets lie.
namespace pavo::mach {

enum class Namespace : unsigned char { Process, User, System };

// The values that stand for a namespace where a port is asked for. No descriptor has a number like these.
constexpr mach_port_t kProcessNamespacePort = 0x7000'0001;
constexpr mach_port_t kUserNamespacePort = 0x7000'0002;
constexpr mach_port_t kSystemNamespacePort = 0x7000'0003;

std::optional<Namespace> namespaceOf(mach_port_t port);
mach_port_t portOf(Namespace where);
// The system's namespace is its own parent.
Namespace parentOf(Namespace where);

// Where the namespace lies at this moment: the environment says so and may change between calls.
std::string folderOf(Namespace where);

// Opens the folder, made before where it is missing and `create` says so. Invalid, with errno set, where it
// is not a folder that only its owner may change, or where the owner is neither this user nor root.
UniqueFd openFolder(const std::string& path, bool create);

// Whether a file of this owner can be trusted: our own, or the administrator's.
bool isTrustedOwner(unsigned int owner);

// Whether the name can be a file's: short, not empty, one path component, and none of the names that
// namespaces use themselves.
bool isUsableName(std::string_view name);

}  // namespace pavo::mach
