#pragma once

#include "Platform/XPC/XPCArgument.h"
#include "Platform/XPC/linux/MessageReader.h"
#include "Platform/XPC/linux/SurfaceCache.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace xpc {

// Reads the arguments of a message one after the other from its bytes: the library cannot read descriptors
// that it does not have. Borrows the message and the cache.
class BodyReader final {
public:
    BodyReader(const MessageReader& raw, SurfaceCache& surfaces) : raw_(raw), surfaces_(surfaces) {}

    // All arguments, or none with the reason in refusal(). The message's signature must be that of `types`.
    std::optional<std::vector<Argument>> readAll(std::span<const ArgumentType> types);
    const char* refusal() const { return refusal_; }

private:
    std::optional<Argument> read(ArgumentType type);
    std::optional<Argument> readTiming();
    std::optional<Argument> readSurface();
    std::optional<Argument> readOptionalData();
    std::optional<Argument> readOptionalError();
    CMTime readTime();
    bool readBoolean();
    std::string readString();
    ns::Data readData();

    // The next bytes, from a multiple of `alignment` on; zeros where the message has not as many.
    std::span<const std::byte> take(std::size_t size, std::size_t alignment);
    template <typename Number>
    Number number();
    void refuse(const char* reason);

    const MessageReader& raw_;
    SurfaceCache& surfaces_;
    std::size_t offset_ = 0;
    const char* refusal_ = nullptr;
};

}  // namespace xpc
