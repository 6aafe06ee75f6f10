#include "Tests/CMIOExtensionSupport/AuthorizationRecorder.h"

#include "Platform/Support/Ref.h"

#include <ServiceManagement/ServiceManagement.h>

#include <utility>

namespace pavo::test {

namespace {

AuthorizationBehaviour behaviour;
std::vector<AuthorizationCall> calls;
cf::Ref<CFErrorRef> lastError;

std::vector<CopiedRight> copyRights(const AuthorizationRights* rights)
{
    std::vector<CopiedRight> copies;
    for (UInt32 i = 0; rights && i < rights->count; ++i) {
        const auto& item = rights->items[i];
        copies.push_back({item.name, item.valueLength, item.value != nullptr, item.flags});
    }
    return copies;
}

std::string textOf(CFStringRef string)
{
    char text[256] = {};
    return string && CFStringGetCString(string, text, sizeof(text), kCFStringEncodingUTF8) ? text : "none";
}

}  // namespace

AuthorizationBehaviour& authorizationBehaviour()
{
    return behaviour;
}

std::vector<AuthorizationCall> takeAuthorizationCalls()
{
    return std::exchange(calls, {});
}

AuthorizationRef recordedAuthorization()
{
    static const int place = 0;
    return reinterpret_cast<AuthorizationRef>(&place);
}

CFIndex heldErrorCount()
{
    return lastError ? CFGetRetainCount(lastError.get()) - 1 : 0;
}

void resetAuthorization()
{
    behaviour = {};
    calls.clear();
    lastError = {};
}

}  // namespace pavo::test

using pavo::test::AuthorizationCall;

extern "C" {

OSStatus __wrap_AuthorizationCreate(const AuthorizationRights* rights,
                                    const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                                    AuthorizationRef* authorization)
{
    AuthorizationCall call{.function = "AuthorizationCreate", .flags = flags};
    call.hasEnvironment = environment != nullptr;
    call.rights = pavo::test::copyRights(rights);
    pavo::test::calls.push_back(std::move(call));
    if (pavo::test::behaviour.create == 0) *authorization = pavo::test::recordedAuthorization();
    return pavo::test::behaviour.create;
}

OSStatus __wrap_AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                        const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                                        AuthorizationRights** authorizedRights)
{
    AuthorizationCall call{.function = "AuthorizationCopyRights", .reference = authorization, .flags = flags};
    call.hasEnvironment = environment != nullptr;
    call.wantsResult = authorizedRights != nullptr;
    call.rights = pavo::test::copyRights(rights);
    pavo::test::calls.push_back(std::move(call));
    return pavo::test::behaviour.copyRights;
}

OSStatus __wrap_AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags)
{
    pavo::test::calls.push_back(
        {.function = "AuthorizationFree", .reference = authorization, .flags = flags});
    return 0;
}

Boolean __wrap_SMJobBless(CFStringRef domain, CFStringRef label, AuthorizationRef authorization,
                          CFErrorRef* error)
{
    AuthorizationCall call{.function = "SMJobBless", .reference = authorization};
    call.domain = domain == kSMDomainSystemLaunchd ? "system" : "another";
    call.label = pavo::test::textOf(label);
    pavo::test::calls.push_back(std::move(call));
    const auto& behaviour = pavo::test::behaviour;
    if (behaviour.blesses || !behaviour.errorDomain) return behaviour.blesses;
    const auto errorDomain = cf::adopt(CFStringCreateWithCString(
        kCFAllocatorDefault, behaviour.errorDomain->c_str(), kCFStringEncodingUTF8));
    *error = CFErrorCreate(kCFAllocatorDefault, errorDomain.get(), behaviour.errorCode, nullptr);
    pavo::test::lastError = cf::retain(*error);
    return false;
}

}  // extern "C"
