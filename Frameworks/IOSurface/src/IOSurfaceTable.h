#pragma once

#include "IOSurfaceMemory.h"

#include <IOSurface/IOSurface.h>

#include <map>
#include <mutex>

namespace iosurface {

// The surfaces that live in this process, so that one surface is one object however often it arrives.
//
// Ownership: keeps nothing alive. An object leaves the table before it is freed.
// Threads:   safe from any thread.
class Table final {
public:
    // The process's only one. It is never destroyed, because objects may be released at any time.
    static Table& shared();

    // With a reference for the caller, or null.
    IOSurfaceRef copy(const FileIdentity& identity);
    // Enters the object, and gives it back with the caller's reference; unless there is one by now, which
    // then comes back with a reference instead.
    IOSurfaceRef enter(const FileIdentity& identity, IOSurfaceRef surface);
    // The object is about to be freed.
    void remove(const FileIdentity& identity, IOSurfaceRef surface);

private:
    IOSurfaceRef copyLocked(const FileIdentity& identity);

    std::mutex mutex_;
    std::map<FileIdentity, IOSurfaceRef> surfaces_;
};

}  // namespace iosurface
