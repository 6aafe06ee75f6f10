#pragma once

#include "Platform/Foundation/NSData.h"
#include "Platform/Foundation/NSError.h"
#include "Platform/Support/Ref.h"

#include <CoreMedia/CoreMedia.h>
#include <IOSurface/IOSurface.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

namespace xpc {

// A value that can travel. Surfaces travel by reference: no pixel is copied. Texts are UTF-8 without zero
// bytes. Of an error its domain and code travel.
using Argument =
    std::variant<std::int32_t, bool, double, CMSampleTimingInfo, cf::Ref<IOSurfaceRef>, std::uint64_t,
                 std::string, ns::Data, std::optional<ns::Data>, std::optional<ns::Error>>;
// Index of each alternative of Argument.
enum class ArgumentType : std::size_t {
    int32,
    boolean,
    real,
    sampleTiming,
    surface,
    uint64,
    string,
    data,
    optionalData,
    optionalError,
};

// How a method's argument type travels. IOSurfaceRef is borrowed in a call, owned on the way.
template <typename T>
struct Travels {
    using Stored = T;
    static const T& unwrap(const T& stored) { return stored; }
    static Argument wrap(const T& value) { return Argument(std::in_place_type<T>, value); }
};
template <>
struct Travels<IOSurfaceRef> {
    using Stored = cf::Ref<IOSurfaceRef>;
    static IOSurfaceRef unwrap(const Stored& stored) { return stored.get(); }
    static Argument wrap(IOSurfaceRef value) { return Argument(cf::retain(value)); }
};

template <typename Stored, std::size_t Index = 0>
constexpr ArgumentType argumentType()
{
    static_assert(Index < std::variant_size_v<Argument>, "this type cannot travel in a message");
    if constexpr (std::is_same_v<std::variant_alternative_t<Index, Argument>, Stored>)
        return static_cast<ArgumentType>(Index);
    else
        return argumentType<Stored, Index + 1>();
}

// The values of a method's parameters. The arguments must be of their types, and live as long as the values.
template <typename Parameters>
auto unwrapAll(std::span<const Argument> arguments)
{
    return [&arguments]<std::size_t... I>(std::index_sequence<I...>) {
        return std::tuple<decltype(Travels<std::tuple_element_t<I, Parameters>>::unwrap(
            std::get<typename Travels<std::tuple_element_t<I, Parameters>>::Stored>(arguments[I])))...>(
            Travels<std::tuple_element_t<I, Parameters>>::unwrap(
                std::get<typename Travels<std::tuple_element_t<I, Parameters>>::Stored>(arguments[I]))...);
    }(std::make_index_sequence<std::tuple_size_v<Parameters>>{});
}

}  // namespace xpc
