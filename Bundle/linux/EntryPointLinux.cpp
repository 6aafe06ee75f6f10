#include "Bundle/TWCMIOExtensionStubSupportEntryPoint.h"
#include "CMIOExtensionSupport/EntryPoint.h"

#include <memory>
#include <type_traits>

namespace {

using Handle = std::shared_ptr<pavo::EntryPoint>;

static_assert(std::is_base_of_v<pavo::TWCMIOExtensionStubSupportEntryPointProtocol, pavo::EntryPoint>);

Handle& entryPoint(void* self)
{
    return *static_cast<Handle*>(self);
}

}  // namespace

extern "C" [[gnu::visibility("default")]]  //
const TWCMIOExtensionStubSupportEntryPoint TWCMIOExtensionSupportEntryPoint = {
    TWCMIOExtensionStubSupportEntryPointProtocolName,
    []() -> void* { return new Handle(pavo::EntryPoint::create()); },
    [](void* self) { entryPoint(self)->start(); },
    [](void* self) { entryPoint(self)->stop(); },
    [](void* self) { delete &entryPoint(self); },
};
