#include <ServiceManagement/ServiceManagement.h>
#include <os/log_printf.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "BundledHelper.h"
#include "Failure.h"
#include "Platform/Support/Ref.h"
#include "SystemdManager.h"

const CFStringRef kSMDomainSystemLaunchd = CFSTR("kSMDomainSystemLaunchd");
const CFStringRef kSMErrorDomainFramework = CFSTR("CFErrorDomainFramework");
const CFStringRef kSMErrorDomainLaunchd = CFSTR("CFErrorDomainLaunchd");

namespace {

using pavo::servicemanagement::BundledHelper;
using pavo::servicemanagement::Failure;
using pavo::servicemanagement::SystemdManager;

cf::Ref<CFErrorRef> makeError(CFStringRef domain, const Failure& failure)
{
    const auto text = cf::adopt(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(failure.text.data()),
                                static_cast<CFIndex>(failure.text.size()), kCFStringEncodingUTF8, false));
    std::array<const void*, 1> keys = {kCFErrorLocalizedDescriptionKey};
    std::array<const void*, 1> values = {text.get()};
    // A path in the text need not be UTF-8; the error is one all the same.
    const auto info =
        cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(), text ? 1 : 0,
                                     &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    return cf::adopt(CFErrorCreate(kCFAllocatorDefault, domain, failure.code, info.get()));
}

Boolean fail(CFStringRef domain, const Failure& failure, CFErrorRef* outError)
{
    static const os_log_t log = os_log_create("com.tarnwell.macos.cam.platform", "ServiceManagement");
    os_log_printf(log, OS_LOG_TYPE_ERROR, "Cannot install a helper: %s", failure.text.c_str());
    if (outError) *outError = makeError(domain, failure).release();
    return false;
}

bool mayBless(AuthorizationRef authorization)
{
    if (geteuid() == 0) return true;
    AuthorizationItem right{kSMRightBlessPrivilegedHelper, 0, nullptr, 0};
    const AuthorizationRights rights{1, &right};
    return AuthorizationCopyRights(authorization, &rights, nullptr, kAuthorizationFlagDefaults, nullptr) ==
           errAuthorizationSuccess;
}

std::optional<Failure> install(const BundledHelper& helper)
{
    std::vector<std::string> units = {helper.service};
    if (helper.socket) units.push_back(*helper.socket);
    SystemdManager systemd;
    auto failure = systemd.connect();
    if (!failure) failure = systemd.linkUnitFiles(helper.unitFiles);
    if (!failure) failure = systemd.enableUnitFiles(units);
    if (!failure) failure = systemd.reload();
    // The socket first: its service is handed it, and would else be up without one.
    if (!failure && helper.socket) failure = systemd.start(*helper.socket);
    // An older helper that runs is not the one that was asked for.
    if (!failure) failure = systemd.restart(helper.service);
    return failure;
}

}  // namespace

Boolean SMJobBless(CFStringRef domain, CFStringRef executableLabel, AuthorizationRef auth,
                   CFErrorRef* outError)
{
    if (!domain || !CFEqual(domain, kSMDomainSystemLaunchd))
        return fail(kSMErrorDomainFramework,
                    {kSMErrorInternalFailure, "Only the system's domain has privileged helpers"}, outError);
    const char* const label =
        executableLabel ? CFStringGetCStringPtr(executableLabel, kCFStringEncodingUTF8) : nullptr;
    if (!label)
        return fail(kSMErrorDomainFramework, {kSMErrorToolNotValid, "The helper has no label"}, outError);
    if (!mayBless(auth))
        return fail(kSMErrorDomainFramework,
                    {kSMErrorAuthorizationFailure, "The right to install a helper is not in hand"}, outError);
    const auto helper = pavo::servicemanagement::findBundledHelper(label);
    if (const auto* const failure = std::get_if<Failure>(&helper))
        return fail(kSMErrorDomainFramework, *failure, outError);
    if (const auto failure = install(std::get<BundledHelper>(helper)))
        return fail(kSMErrorDomainLaunchd, *failure, outError);
    return true;
}
