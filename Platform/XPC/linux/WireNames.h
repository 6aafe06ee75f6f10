#pragma once

#include "Platform/XPC/XPCProtocol.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

// What protocols and selectors are called on the wire:
//
//     interface  the name of the protocol that declares the method, not of one that adopts it
//     member     the selector with each ':' written as '_'
//     signature  int32 i · boolean b · real d · sampleTiming ((xiux)(xiux)(xiux)) · surface h · uint64 t ·
//                string s · data ay · optionalData (bay) · optionalError (bsx)
//
// An optional value begins with whether there is one; where there is none, what follows is empty and 0.
namespace xpc {

// A method with the protocol that declares it.
struct DeclaredMethod {
    const ProtocolDescription* protocol;
    const MethodDescription* method;
};

std::string memberName(std::string_view selector);
std::string signatureOf(std::span<const ArgumentType> arguments);

// Look in the protocol and in those that it adopts; none where there is no such method.
std::optional<DeclaredMethod> findBySelector(const ProtocolDescription& protocol, std::string_view selector);
std::optional<DeclaredMethod> findByMember(const ProtocolDescription& protocol, std::string_view interface,
                                           std::string_view member);

// A protocol that cannot be put on the wire is a programming error: a name that D-Bus does not allow, two
// selectors with one member name, more surfaces in a method than a message may have, or surfaces in a method
// with a reply.
void requireWireNames(const ProtocolDescription& protocol);

}  // namespace xpc
