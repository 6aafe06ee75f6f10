#pragma once

#include <mach/port.h>

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Support/UniqueFd.h"
#include "Platform/Support/linux/TrustedPath.h"

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

// Whose names and sockets are believed there. The system's are root's alone, unless the environment has moved
// it to where the user could put it.
TrustedOwner trustedOwnerIn(Namespace where);

// Opens the folder of a namespace, made before where it is missing and `create` says so. Invalid, with errno
// set, where it is not a folder that only a trusted owner may change; for the system's that goes for every
// folder above it, too.
UniqueFd openNamespace(Namespace where, bool create);

// The same for the folder of a process or a user, by its path.
UniqueFd openFolder(const std::string& path, bool create);

// Whether the name can be a file's: short, not empty, one path component, and none of the names that
// namespaces use themselves.
bool isUsableName(std::string_view name);

}  // namespace pavo::mach
