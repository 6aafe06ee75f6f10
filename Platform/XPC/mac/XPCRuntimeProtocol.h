#pragma once

#include "Platform/Foundation/mac/NSConversions.h"
#include "Platform/XPC/XPCProtocol.h"

#include <Foundation/Foundation.h>
#include <IOSurface/IOSurfaceObjC.h>
#include <objc/message.h>

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

// What the system needs beside a protocol's description: an Objective-C protocol that was compiled, because
// only a compiler writes the extended types that NSXPC reads, and the road of each message between C++ values
// and the Objective-C arguments. Both are found through a table that whoever builds the image defines.
namespace xpc {

struct RuntimeProtocol {
    const ProtocolDescription& (*description)();
    ::Protocol* (*protocol)();
    // Sends the message to an object of the protocol, with a block for `reply` where it has one. False where
    // the protocol has no such message.
    bool (*send)(id target, std::string_view selector, std::span<const Argument> arguments, ReplySink reply);
    // Makes the object that a connection exports for a C++ one: of the protocol, and passing every message to
    // `receive`. Null where the image never exports the protocol.
    id (*makeExportedObject)(ExportedObject object);
};

// Defined by whoever builds the image.
extern const std::span<const RuntimeProtocol> runtimeProtocols;

// The table's entry for a protocol. One without an entry is a programming error.
const RuntimeProtocol& runtimeProtocol(const ProtocolDescription& description);

// How a C++ argument type stands in an Objective-C message.
template <typename T>
struct ObjectiveC {
    using Type = T;
    static T from(const T& value) { return value; }
    static T to(T value) { return value; }
};
template <>
struct ObjectiveC<bool> {
    using Type = BOOL;
    static BOOL from(bool value) { return value; }
    static bool to(BOOL value) { return value; }
};
template <>
struct ObjectiveC<IOSurfaceRef> {
    using Type = IOSurface*;
    static IOSurface* from(IOSurfaceRef value) { return (__bridge IOSurface*)value; }
};
template <>
struct ObjectiveC<std::string> {
    using Type = NSString*;
    static NSString* from(const std::string& value) { return ns::toObject(value); }
};
template <>
struct ObjectiveC<ns::Data> {
    using Type = NSData*;
    static NSData* from(const ns::Data& value) { return ns::toObject(value); }
};
template <>
struct ObjectiveC<std::optional<ns::Data>> {
    using Type = NSData*;
    static std::optional<ns::Data> to(NSData* value)
    {
        return value ? std::optional(ns::toData(value)) : std::nullopt;
    }
};
template <>
struct ObjectiveC<std::optional<ns::Error>> {
    using Type = NSError*;
    static std::optional<ns::Error> to(NSError* value)
    {
        return value ? std::optional(ns::toError(value)) : std::nullopt;
    }
};

// The block that a message with a reply takes last.
template <typename... R>
auto replyBlock(ReplySink sink, std::tuple<R...>*)
{
    return ^(typename ObjectiveC<R>::Type... values) {
      const std::array<Argument, sizeof...(R)> wrapped = {Travels<R>::wrap(ObjectiveC<R>::to(values))...};
      sink(wrapped);
    };
}

// The typed call that the compiler would write for the message.
template <typename Entry>
void sendEntry(id target, std::span<const Argument> arguments, [[maybe_unused]] ReplySink reply)
{
    using Types = typename Entry::Arguments;
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        const SEL selector = sel_registerName(Entry::selector.data());
        const auto value = []<typename T>(const Argument& argument, T*) {
            return ObjectiveC<T>::from(Travels<T>::unwrap(std::get<typename Travels<T>::Stored>(argument)));
        };
        if constexpr (Entry::hasReply) {
            const auto block =
                replyBlock(std::move(reply), static_cast<typename Entry::Reply::Values*>(nullptr));
            using Function = void (*)(id, SEL, typename ObjectiveC<std::tuple_element_t<I, Types>>::Type...,
                                      decltype(block));
            reinterpret_cast<Function>(&objc_msgSend)(
                target, selector,
                value(arguments[I], static_cast<std::tuple_element_t<I, Types>*>(nullptr))..., block);
        } else {
            using Function = void (*)(id, SEL, typename ObjectiveC<std::tuple_element_t<I, Types>>::Type...);
            reinterpret_cast<Function>(&objc_msgSend)(
                target, selector,
                value(arguments[I], static_cast<std::tuple_element_t<I, Types>*>(nullptr))...);
        }
    }(std::make_index_sequence<std::tuple_size_v<Types>>{});
}

template <typename Service>
bool sendMessage(id target, std::string_view selector, std::span<const Argument> arguments, ReplySink reply);

template <typename... Entries>
bool sendOwn(id target, std::string_view selector, std::span<const Argument> arguments,
             const ReplySink& reply, Messages<Entries...>)
{
    return ((selector == Entries::selector && (sendEntry<Entries>(target, arguments, reply), true)) || ...);
}

template <typename... Adopted>
bool sendAdopted([[maybe_unused]] id target, [[maybe_unused]] std::string_view selector,
                 [[maybe_unused]] std::span<const Argument> arguments,
                 [[maybe_unused]] const ReplySink& reply, Adopts<Adopted...>)
{
    return (sendMessage<Adopted>(target, selector, arguments, reply) || ...);
}

template <typename Service>
bool sendMessage(id target, std::string_view selector, std::span<const Argument> arguments, ReplySink reply)
{
    return sendOwn(target, selector, arguments, reply, typename Protocol<Service>::Messages{}) ||
           sendAdopted(target, selector, arguments, reply, typename Protocol<Service>::Adopts{});
}

// The table's entry for a service.
template <typename Service>
constexpr RuntimeProtocol bindProtocol(::Protocol* (*protocol)(),
                                       id (*makeExportedObject)(ExportedObject object) = nullptr)
{
    return {&describe<Service>, protocol, &sendMessage<Service>, makeExportedObject};
}

// Passes a message without a reply that came in to the C++ object. A missing surface is the peer's mistake,
// and its message is dropped.
template <typename... A>
void receive(const ExportedObject& object, SEL selector, const A&... values)
{
    const auto isMissing = []<typename T>(const T& value) {
        if constexpr (std::is_same_v<T, IOSurfaceRef>)
            return value == nullptr;
        else
            return false;
    };
    if ((isMissing(values) || ...)) return;
    const std::array<Argument, sizeof...(A)> arguments = {Travels<A>::wrap(values)...};
    object.protocol->invoke(object.object.get(), sel_getName(selector), arguments, {});
}

}  // namespace xpc
