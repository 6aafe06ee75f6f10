#include "IOSurfaceTable.h"

#include <CoreFoundation/CFObject.h>

namespace iosurface {

namespace {

// Takes a reference unless the last one is gone already.
bool tryRetain(IOSurfaceRef surface)
{
    auto& count = cf::runtime::asObject(surface)->retainCount;
    auto seen = count.load(std::memory_order_relaxed);
    while (seen > 0)
        if (count.compare_exchange_weak(seen, seen + 1, std::memory_order_acq_rel)) return true;
    return false;
}

}  // namespace

Table& Table::shared()
{
    static auto& table = *new Table;
    return table;
}

IOSurfaceRef Table::copy(const FileIdentity& identity)
{
    const std::lock_guard lock(mutex_);
    return copyLocked(identity);
}

IOSurfaceRef Table::enter(const FileIdentity& identity, IOSurfaceRef surface)
{
    const std::lock_guard lock(mutex_);
    if (const auto earlier = copyLocked(identity)) return earlier;
    surfaces_[identity] = surface;
    return surface;
}

void Table::remove(const FileIdentity& identity, IOSurfaceRef surface)
{
    const std::lock_guard lock(mutex_);
    const auto found = surfaces_.find(identity);
    // A dying object may have been replaced by one for the same surface.
    if (found != surfaces_.end() && found->second == surface) surfaces_.erase(found);
}

IOSurfaceRef Table::copyLocked(const FileIdentity& identity)
{
    const auto found = surfaces_.find(identity);
    return found != surfaces_.end() && tryRetain(found->second) ? found->second : nullptr;
}

}  // namespace iosurface
