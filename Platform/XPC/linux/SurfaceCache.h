#pragma once

#include "Platform/Support/Ref.h"

#include <IOSurface/IOSurface.h>

#include <deque>

namespace xpc {

// Keeps the surfaces that were received last. A surface object is the same for as long as one lives, so a
// producer that sends its surfaces in turn has each of them mapped once, not once per frame.
class SurfaceCache final {
public:
    // Forgets the surface that was not received for the longest time where there are too many.
    void keep(const cf::Ref<IOSurfaceRef>& surface);

private:
    std::deque<cf::Ref<IOSurfaceRef>> surfaces_;  // the latest one first
};

}  // namespace xpc
