#pragma once

#include "Platform/XPC/XPCArgument.h"
#include "Platform/XPC/XPCReply.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

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
// Methods return nothing. One whose last parameter is a Reply is answered through it; all others are one-way.
namespace xpc {

struct MethodDescription {
    std::string_view selector;
    std::span<const ArgumentType> arguments;             // without the reply
    std::optional<std::span<const ArgumentType>> reply;  // what the reply carries; none: one-way
};

// A protocol as data, for the code that carries messages without knowing the service.
struct ProtocolDescription {
    std::string_view name;
    std::span<const ProtocolDescription* const> adopted;
    std::span<const MethodDescription> methods;  // its own, without those of adopted protocols
    // Calls the method of `object`, which must be of the described service. False where the protocol, with
    // those that it adopts, has no such selector; the argument types must match the description. `answer` is
    // where the reply goes; a one-way method has no use for it.
    bool (*invoke)(void* object, std::string_view selector, std::span<const Argument> arguments,
                   const ReplySink& answer);

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

// The parameters of a method, apart from the reply: `Reply` is void where there is none.
template <typename Parameters>
struct Split;
template <>
struct Split<std::tuple<>> {
    using Arguments = std::tuple<>;
    using Reply = void;
};
template <typename... R>
struct Split<std::tuple<Reply<R...>>> {
    using Arguments = std::tuple<>;
    using Reply = xpc::Reply<R...>;
};
template <typename First, typename... Rest>
struct Split<std::tuple<First, Rest...>> {
    using Arguments = decltype(std::tuple_cat(
        std::declval<std::tuple<First>>(), std::declval<typename Split<std::tuple<Rest...>>::Arguments>()));
    using Reply = typename Split<std::tuple<Rest...>>::Reply;
};

template <typename Method>
struct Signature;
template <typename S, typename... A>
struct Signature<void (S::*)(A...)> {
    using Service = S;
    using Arguments = typename Split<std::tuple<std::decay_t<A>...>>::Arguments;
    using Reply = typename Split<std::tuple<std::decay_t<A>...>>::Reply;
};

template <auto Method>
struct MethodTag {};

template <Selector Name, auto Method>
struct Message {
    using Tag = MethodTag<Method>;
    using Service = typename Signature<decltype(Method)>::Service;
    using Arguments = typename Signature<decltype(Method)>::Arguments;
    using Reply = typename Signature<decltype(Method)>::Reply;
    static constexpr std::string_view selector = Name.view();
    static constexpr bool hasReply = !std::is_void_v<Reply>;

    template <typename Tuple>
    struct Types;
    template <typename... A>
    struct Types<std::tuple<A...>> {
        static constexpr std::array<ArgumentType, sizeof...(A)> value = {
            argumentType<typename Travels<A>::Stored>()...};
    };
    static constexpr std::optional<std::span<const ArgumentType>> replyTypes()
    {
        if constexpr (hasReply)
            return Types<typename Reply::Values>::value;
        else
            return std::nullopt;
    }
    static constexpr MethodDescription description{selector, Types<Arguments>::value, replyTypes()};

    static void invoke(Service& object, std::span<const Argument> arguments, const ReplySink& answer)
    {
        auto values = unwrapAll<Arguments>(arguments);
        std::apply(
            [&](auto&... value) {
                if constexpr (hasReply)
                    (object.*Method)(value..., Reply(answer));
                else
                    (object.*Method)(value...);
            },
            values);
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
    static bool invoke(Service& object, std::string_view selector, std::span<const Argument> arguments,
                       const ReplySink& answer)
    {
        return ((selector == Entries::selector && (Entries::invoke(object, arguments, answer), true)) || ...);
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
bool invokeService(Service& object, std::string_view selector, std::span<const Argument> arguments,
                   const ReplySink& answer);

template <typename Service, typename... Adopted>
bool invokeAdopted([[maybe_unused]] Service& object, [[maybe_unused]] std::string_view selector,
                   [[maybe_unused]] std::span<const Argument> arguments,
                   [[maybe_unused]] const ReplySink& answer, Adopts<Adopted...>)
{
    return (invokeService<Adopted>(object, selector, arguments, answer) || ...);
}

template <typename Service>
bool invokeService(Service& object, std::string_view selector, std::span<const Argument> arguments,
                   const ReplySink& answer)
{
    return Protocol<Service>::Messages::template invoke<Service>(object, selector, arguments, answer) ||
           invokeAdopted<Service>(object, selector, arguments, answer, typename Protocol<Service>::Adopts{});
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
        [](void* object, std::string_view selector, std::span<const Argument> arguments,
           const ReplySink& answer) {
            return invokeService<Service>(*static_cast<Service*>(object), selector, arguments, answer);
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
