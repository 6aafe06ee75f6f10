#include "Stub/Stub.h"

#include "Bundle/TWCMIOExtensionStubSupportEntryPoint.h"

#include <dlfcn.h>
#include <signal.h>

#include <cstdio>
#include <cstring>

namespace pavo {

namespace {

// The entry point of the loaded bundle; null after a line on standard error. A bundle is never unloaded: its
// threads run as long as the process.
const TWCMIOExtensionStubSupportEntryPoint* loadEntryPoint(const std::string& bundlePath)
{
    const std::string executable = bundlePath + "/Contents/Linux/CMIOExtensionSupport";
    void* image = ::dlopen(executable.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!image) {
        std::fprintf(stderr, "pavo: cannot load the bundle %s: %s\n", bundlePath.c_str(), ::dlerror());
        return nullptr;
    }
    const auto* entryPoint = static_cast<const TWCMIOExtensionStubSupportEntryPoint*>(
        ::dlsym(image, "TWCMIOExtensionSupportEntryPoint"));
    if (!entryPoint) {
        std::fprintf(stderr, "pavo: the bundle %s has no entry point\n", bundlePath.c_str());
        return nullptr;
    }
    if (std::strcmp(entryPoint->protocolName, TWCMIOExtensionStubSupportEntryPointProtocolName) != 0) {
        std::fprintf(stderr, "pavo: the entry point of %s speaks another protocol: %s\n", bundlePath.c_str(),
                     entryPoint->protocolName);
        return nullptr;
    }
    return entryPoint;
}

}  // namespace

int runStub(const std::string& bundlePath, const std::function<void()>& started)
{
    // Blocked before the first thread, so that every thread inherits it and only the wait below sees them.
    sigset_t endSignals;
    ::sigemptyset(&endSignals);
    ::sigaddset(&endSignals, SIGTERM);
    ::sigaddset(&endSignals, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);

    const auto* entryPoint = loadEntryPoint(bundlePath);
    if (!entryPoint) return 1;
    // Never taken apart, so it stays within reach to the end: what is out of reach counts as lost memory.
    static void* camera = nullptr;
    camera = entryPoint->init();
    entryPoint->start(camera);
    if (started) started();

    int signal = 0;
    ::sigwait(&endSignals, &signal);
    // The camera ends with the process; taking the tree apart while its threads run would gain nothing.
    entryPoint->stop(camera);
    return 0;
}

}  // namespace pavo
