#include "CMIOExtensionSupport/PrivilegedHelperInstallManager.h"

#include "CMIOExtensionSupport/BosunServiceProtocol.h"
#include "CMIOExtensionSupport/UnexpectedError.h"
#include "Platform/Foundation/NSProcessInfo.h"
#include "Platform/Support/Fatal.h"
#include "Platform/Support/Ref.h"

#include <CoreFoundation/CoreFoundation.h>
#include <ServiceManagement/ServiceManagement.h>

#include <string>
#include <string_view>

namespace pavo {

namespace {

constexpr AuthorizationFlags kBlessFlags =
    kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights | kAuthorizationFlagPreAuthorize;
static_assert(kBlessFlags == 0x13);

ns::Error statusError(OSStatus status)
{
    return {ns::NSOSStatusErrorDomain, status};
}

cf::Ref<CFStringRef> makeString(std::string_view text)
{
    return cf::adopt(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                             static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8,
                                             false));
}

std::string textOf(CFStringRef string)
{
    const auto room = CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::string text(static_cast<std::size_t>(room), '\0');
    if (!CFStringGetCString(string, text.data(), room, kCFStringEncodingUTF8)) return {};
    return text.c_str();
}

}  // namespace

PrivilegedHelperInstallManager::PrivilegedHelperInstallManager()
{
    const auto status = AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &authRef_);
    if (status != errAuthorizationSuccess) unexpectedError(statusError(status), FatalSite::here());
}

std::optional<ns::Error> PrivilegedHelperInstallManager::obtainBlessRight()
{
    if (ns::ProcessInfo::userIdentifier() == 0) return std::nullopt;
    AuthorizationItem item{kSMRightBlessPrivilegedHelper, 0, nullptr, 0};
    const AuthorizationRights rights{1, &item};
    const auto status = AuthorizationCopyRights(authRef_, &rights, nullptr, kBlessFlags, nullptr);
    if (status != errAuthorizationSuccess) return statusError(status);
    return std::nullopt;
}

std::optional<ns::Error> PrivilegedHelperInstallManager::installHelper()
{
    if (auto failure = obtainBlessRight()) return failure;
    const auto label = makeString(kHelperLabel);
    cf::Ref<CFErrorRef> error;
    if (SMJobBless(kSMDomainSystemLaunchd, label.get(), authRef_, error.receive())) return std::nullopt;
    require(static_cast<bool>(error), "SMJobBless failed without an error");
    return ns::Error{textOf(CFErrorGetDomain(error.get())), CFErrorGetCode(error.get())};
}

}  // namespace pavo
