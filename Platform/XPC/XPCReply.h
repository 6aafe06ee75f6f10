#pragma once

#include "Platform/XPC/XPCArgument.h"

#include <array>
#include <functional>
#include <span>
#include <tuple>
#include <utility>

namespace xpc {

// Takes the values of one answer.
using ReplySink = std::function<void(std::span<const Argument>)>;

// The answer to one call, in the hands of the object that was called, which answers by calling it: at once or
// later, from any thread. Only the first answer counts. A caller whose reply goes without having been called
// is told that there will be none.
template <typename... A>
class Reply final {
public:
    using Values = std::tuple<A...>;

    explicit Reply(ReplySink sink) : sink_(std::move(sink)) {}

    void operator()(const A&... values) const
    {
        const std::array<Argument, sizeof...(A)> wrapped = {Travels<A>::wrap(values)...};
        sink_(wrapped);
    }

private:
    ReplySink sink_;
};

}  // namespace xpc
