#include "Platform/XPC/linux/SurfaceCache.h"

#include "Platform/XPC/linux/WireLimits.h"

#include <algorithm>

namespace xpc {

void SurfaceCache::keep(const cf::Ref<IOSurfaceRef>& surface)
{
    const auto found = std::find_if(surfaces_.begin(), surfaces_.end(),
                                    [&surface](const auto& kept) { return kept.get() == surface.get(); });
    if (found != surfaces_.end()) {
        std::rotate(surfaces_.begin(), found, found + 1);
        return;
    }
    surfaces_.push_front(surface);
    if (surfaces_.size() > kMaxCachedSurfaces) surfaces_.pop_back();
}

}  // namespace xpc
