#include "Platform/Foundation/NSBundle.h"

#include "Platform/Foundation/mac/NSConversions.h"

#include <dlfcn.h>

#include <cstdlib>
#include <memory>

namespace ns {

namespace {

struct FreeArray {
    void operator()(const char** names) const { std::free(names); }
};

// Any Objective-C class of the image that `address` lies in: the platform finds bundles by those only.
::Class classOfImageAt(const void* address)
{
    Dl_info image{};
    if (!dladdr(address, &image)) return Nil;
    unsigned int count = 0;
    const std::unique_ptr<const char*[], FreeArray> names(
        objc_copyClassNamesForImage(image.dli_fname, &count));
    return count > 0 ? objc_getClass(names[0]) : Nil;
}

NSBundle* bundleAt(const std::string& path)
{
    NSBundle* const main = [NSBundle mainBundle];
    // The main bundle knows more than its folder: a program may carry its properties in itself.
    return path == toText(main.bundlePath) ? main : [NSBundle bundleWithPath:toObject(path)];
}

}  // namespace

Bundle Bundle::mainBundle()
{
    return Bundle(toText([NSBundle mainBundle].bundlePath));
}

Bundle Bundle::bundleForClass(const Class& type)
{
    const ::Class classOfImage = classOfImageAt(&type);
    return classOfImage ? Bundle(toText([NSBundle bundleForClass:classOfImage].bundlePath)) : mainBundle();
}

std::optional<std::string> Bundle::bundleIdentifier() const
{
    NSString* const identifier = bundleAt(path_).bundleIdentifier;
    return identifier ? std::optional(toText(identifier)) : std::nullopt;
}

std::optional<std::string> Bundle::pathForResource(std::string_view name, std::string_view extension) const
{
    NSURL* const url = [bundleAt(path_) URLForResource:toObject(name) withExtension:toObject(extension)];
    return url ? std::optional(toText(url.path)) : std::nullopt;
}

}  // namespace ns
