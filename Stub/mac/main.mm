// The camera extension's program: loads the support bundle that lies among its plug-ins, publishes the camera
// and stays. Knows nothing of the bundle but one class name and one protocol.
#include "Bundle/mac/TWCMIOExtensionStubSupportEntryPointProtocol.h"

#include <Foundation/Foundation.h>
#include <dispatch/dispatch.h>
#include <dlfcn.h>
#include <objc/runtime.h>

#include <cstdio>
#include <string>

namespace {

// Null after a line on standard error. The bundle is never unloaded: its threads run as long as the process.
id<TWCMIOExtensionStubSupportEntryPointProtocol> loadEntryPoint()
{
    const std::string bundle = [NSBundle mainBundle].bundlePath.UTF8String;
    const std::string executable =
        bundle + "/Contents/PlugIns/CMIOExtensionSupport.bundle/Contents/MacOS/CMIOExtensionSupport";
    if (!dlopen(executable.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        std::fprintf(stderr, "Cannot load the camera: %s\n", dlerror());
        return nil;
    }
    const Class type = objc_getClass("TWCMIOExtensionSupportEntryPoint");
    if (!type) std::fprintf(stderr, "%s has no entry point\n", executable.c_str());
    return [[type alloc] init];
}

}  // namespace

int main()
{
    // Kept for the life of the process: it is the camera.
    static id<TWCMIOExtensionStubSupportEntryPointProtocol> entryPoint;
    @autoreleasepool {
        entryPoint = loadEntryPoint();
        [entryPoint start];
    }
    if (!entryPoint) return 1;
    dispatch_main();
}
