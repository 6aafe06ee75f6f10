#pragma once

#include <CoreFoundation/CoreFoundation.h>

// Publish the endpoint of a listener without a name under a mach service name, so that peers in other
// processes can find it. Exported by the bundle under these plain names; usable from C.
//
// `endpoint` is the platform's endpoint object, `name` a string (NSString is bridged). Nothing is kept: the
// caller keeps the listener alive for as long as the name shall lead to it. Nothing is reported: a
// registration that was refused shows in peers that never connect.

#ifdef __cplusplus
extern "C" {
#endif

// In the process's own bootstrap namespace.
void dynamically_register_mach_service_for_endpoint(const void* endpoint, CFStringRef name);

// In the parent of the process's bootstrap namespace, where other processes of the user look names up.
void dynamically_register_mach_service_for_endpoint_on_parent(const void* endpoint, CFStringRef name);

#ifdef __cplusplus
}
#endif
