#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFObject.h>

#include <string>

#include "CFCollection.h"
#include "Platform/Support/Fatal.h"
#include "Platform/Support/Ref.h"

const CFErrorDomain kCFErrorDomainOSStatus = CFSTR("NSOSStatusErrorDomain");
const CFStringRef kCFErrorLocalizedDescriptionKey = CFSTR("NSLocalizedDescription");

struct __CFError : cf::runtime::Object {
    __CFError(CFErrorDomain errorDomain, CFIndex errorCode, cf::Ref<CFDictionaryRef> info)
        : Object(classInfo()),
          domain(cf::retain(errorDomain)),
          code(errorCode),
          userInfo(std::move(info))
    {}
    static const cf::runtime::Class& classInfo();

    const cf::Ref<CFErrorDomain> domain;
    const CFIndex code;
    const cf::Ref<CFDictionaryRef> userInfo;
};

namespace {

using cf::runtime::Object;

const __CFError& asError(const Object* object)
{
    return *static_cast<const __CFError*>(object);
}

const __CFError& checked(CFErrorRef error)
{
    pavo::require(error != nullptr, "a CFError function called with NULL");
    return *error;
}

bool areEqual(const Object* first, const Object* second)
{
    const auto& a = asError(first);
    const auto& b = asError(second);
    return a.code == b.code && CFEqual(a.domain.get(), b.domain.get()) &&
           CFEqual(a.userInfo.get(), b.userInfo.get());
}

CFHashCode hash(const Object* object)
{
    const auto& error = asError(object);
    return CFHash(error.domain.get()) ^ static_cast<CFHashCode>(error.code);
}

std::string textOf(CFStringRef string)
{
    return cf::runtime::description(kCFTypeArrayCallBacks, string);
}

// Which error it is, for those who know the numbers.
std::string nameOf(const __CFError& error)
{
    return textOf(error.domain.get()) + " error " + std::to_string(error.code);
}

CFStringRef copyDebugDescription(const Object* object)
{
    const auto& error = asError(object);
    const auto text = cf::adopt(CFErrorCopyDescription(const_cast<CFErrorRef>(&error)));
    return cf::runtime::createString(nameOf(error) + ": " + textOf(text.get()));
}

}  // namespace

const cf::runtime::Class& __CFError::classInfo()
{
    static constinit const cf::runtime::Class info{"CFError", cf::runtime::destroy<__CFError>, areEqual, hash,
                                                   copyDebugDescription};
    return info;
}

CFTypeID CFErrorGetTypeID(void)
{
    return cf::runtime::typeID<__CFError>();
}

CFErrorRef CFErrorCreate(CFAllocatorRef allocator, CFErrorDomain domain, CFIndex code,
                         CFDictionaryRef userInfo)
{
    pavo::require(domain != nullptr, "CFErrorCreate() called without a domain");
    auto info = cf::adopt(userInfo ? CFDictionaryCreateCopy(allocator, userInfo)
                                   : CFDictionaryCreate(allocator, nullptr, nullptr, 0,
                                                        &kCFTypeDictionaryKeyCallBacks,
                                                        &kCFTypeDictionaryValueCallBacks));
    return cf::runtime::create<__CFError>(domain, code, std::move(info));
}

CFErrorDomain CFErrorGetDomain(CFErrorRef err)
{
    return checked(err).domain.get();
}

CFIndex CFErrorGetCode(CFErrorRef err)
{
    return checked(err).code;
}

CFDictionaryRef CFErrorCopyUserInfo(CFErrorRef err)
{
    return static_cast<CFDictionaryRef>(CFRetain(checked(err).userInfo.get()));
}

CFStringRef CFErrorCopyDescription(CFErrorRef err)
{
    const auto& error = checked(err);
    const CFTypeRef text = CFDictionaryGetValue(error.userInfo.get(), kCFErrorLocalizedDescriptionKey);
    if (text && CFGetTypeID(text) == CFStringGetTypeID()) return static_cast<CFStringRef>(CFRetain(text));
    return cf::runtime::createString("The operation couldn’t be completed. (" + nameOf(error) + ".)");
}
