#pragma once

#include "Platform/Support/Ref.h"

#include <CoreMedia/CoreMedia.h>
#include <IOSurface/IOSurface.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

// Protocols: what two peers may send each other, declared once.
//
// A service is an abstract C++ class; a specialization of xpc::Protocol binds the wire's selector names to
// its methods. Sender, receiver, wire names and tests all read that one list:
//
//     template <>
//     struct xpc::Protocol<pavo::Lamp> {
//         static constexpr std::string_view name = "Module.Lamp";
//         using Adopts = xpc::Adopts<>;
//         using Messages = xpc::Messages<xpc::Message<"switchOn:", &pavo::Lamp::switchOn>>;
//     };
//
// All methods are one-way: they return nothing and have no reply.
namespace xpc {

// A value that can travel. Surfaces travel by reference: no pixel is copied.
using Argument = std::variant<std::int32_t, bool, double, CMSampleTimingInfo, cf::Ref<IOSurfaceRef>>;
// Index of each alternative of Argument.
enum class ArgumentType : std::size_t { int32, boolean, real, sampleTiming, surface };

struct MethodDescription {
    std::string_view selector;
    std::span<const ArgumentType> arguments;
};

// A protocol as data, for the code that carries messages without knowing the service.
struct ProtocolDescription {
    std::string_view name;
    std::span<const ProtocolDescription* const> adopted;
    std::span<const MethodDescription> methods;  // its own, without those of adopted protocols
    // Calls the method of `object`, which must be of the described service. False where the protocol, with
    // those that it adopts, has no such selector; the argument types must match the description.
    bool (*invoke)(void* object, std::string_view selector, std::span<const Argument> arguments);

    // This protocol itself, or one that it adopts.
    bool conformsTo(const ProtocolDescription& other) const
    {
        return this == &other || std::any_of(adopted.begin(), adopted.end(), [&other](const auto* protocol) {
                   return protocol->conformsTo(other);
               });
    }
    // The method of that name, adopted ones included; null where there is none.
    const MethodDescription* method(std::string_view selector) const
    {
        for (const auto& candidate : methods)
            if (candidate.selector == selector) return &candidate;
        for (const auto* protocol : adopted)
            if (const auto* found = protocol->method(selector)) return found;
        return nullptr;
    }
};

template <typename Service>
struct Protocol;

// A selector name as a template argument.
template <std::size_t Size>
struct Selector {
    consteval Selector(const char (&literal)[Size]) { std::copy_n(literal, Size, text); }
    constexpr std::string_view view() const { return {text, Size - 1}; }

    char text[Size] = {};
};

template <typename Method>
struct Signature;
template <typename S, typename... A>
struct Signature<void (S::*)(A...)> {
    using Service = S;
    using Arguments = std::tuple<std::decay_t<A>...>;
};

// How a method's argument type travels. IOSurfaceRef is borrowed in a call, owned on the way.
template <typename T>
struct Travels {
    using Stored = T;
    static T unwrap(const T& stored) { return stored; }
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

template <auto Method>
struct MethodTag {};

template <Selector Name, auto Method>
struct Message {
    using Tag = MethodTag<Method>;
    using Service = typename Signature<decltype(Method)>::Service;
    using Arguments = typename Signature<decltype(Method)>::Arguments;
    static constexpr std::string_view selector = Name.view();

    template <typename Tuple>
    struct Types;
    template <typename... A>
    struct Types<std::tuple<A...>> {
        static constexpr std::array<ArgumentType, sizeof...(A)> value = {
            argumentType<typename Travels<A>::Stored>()...};
    };
    static constexpr MethodDescription description{selector, Types<Arguments>::value};

    static void invoke(Service& object, std::span<const Argument> arguments)
    {
        [&]<std::size_t... I>(std::index_sequence<I...>) {
            (object.*Method)(Travels<std::tuple_element_t<I, Arguments>>::unwrap(
                std::get<typename Travels<std::tuple_element_t<I, Arguments>>::Stored>(arguments[I]))...);
        }(std::make_index_sequence<std::tuple_size_v<Arguments>>{});
    }
};

template <typename... Services>
struct Adopts {
    template <typename Tag>
    static consteval std::string_view selectorOf();
};

template <typename... Entries>
struct Messages {
    static constexpr std::array<MethodDescription, sizeof...(Entries)> descriptions = {
        Entries::description...};

    template <typename Tag>
    static consteval std::string_view selectorOf()
    {
        std::string_view selector;
        ((std::is_same_v<typename Entries::Tag, Tag> ? void(selector = Entries::selector) : void()), ...);
        return selector;
    }
    template <typename Service>
    static bool invoke(Service& object, std::string_view selector, std::span<const Argument> arguments)
    {
        return ((selector == Entries::selector && (Entries::invoke(object, arguments), true)) || ...);
    }
};

// The selector of a method in a protocol or in one that it adopts; empty where it is in none.
template <typename Service, typename Tag>
consteval std::string_view selectorOf()
{
    const auto own = Protocol<Service>::Messages::template selectorOf<Tag>();
    return own.empty() ? Protocol<Service>::Adopts::template selectorOf<Tag>() : own;
}

template <typename... Services>
template <typename Tag>
consteval std::string_view Adopts<Services...>::selectorOf()
{
    std::string_view selector;
    ((selector.empty() ? void(selector = xpc::selectorOf<Services, Tag>()) : void()), ...);
    return selector;
}

template <typename Service>
bool invokeService(Service& object, std::string_view selector, std::span<const Argument> arguments);

template <typename Service, typename... Adopted>
bool invokeAdopted([[maybe_unused]] Service& object, [[maybe_unused]] std::string_view selector,
                   [[maybe_unused]] std::span<const Argument> arguments, Adopts<Adopted...>)
{
    return (invokeService<Adopted>(object, selector, arguments) || ...);
}

template <typename Service>
bool invokeService(Service& object, std::string_view selector, std::span<const Argument> arguments)
{
    return Protocol<Service>::Messages::template invoke<Service>(object, selector, arguments) ||
           invokeAdopted<Service>(object, selector, arguments, typename Protocol<Service>::Adopts{});
}

template <typename Service>
const ProtocolDescription& describe();

template <typename... Adopted>
std::array<const ProtocolDescription*, sizeof...(Adopted)> describeAdopted(Adopts<Adopted...>)
{
    return {&describe<Adopted>()...};
}

// The one description of a service's protocol.
template <typename Service>
const ProtocolDescription& describe()
{
    static const auto adopted = describeAdopted(typename Protocol<Service>::Adopts{});
    static const ProtocolDescription description{
        Protocol<Service>::name, adopted, Protocol<Service>::Messages::descriptions,
        [](void* object, std::string_view selector, std::span<const Argument> arguments) {
            return invokeService<Service>(*static_cast<Service*>(object), selector, arguments);
        }};
    return description;
}

// An object that a connection exports to its peer, with the protocol to call it by. Empty: nothing exported.
struct ExportedObject {
    std::shared_ptr<void> object;  // points to the service that `protocol` describes
    const ProtocolDescription* protocol = nullptr;
};

template <typename Service>
ExportedObject exportObject(std::shared_ptr<Service> object)
{
    if (!object) return {};
    return {std::shared_ptr<void>(std::move(object)), &describe<Service>()};
}

}  // namespace xpc
