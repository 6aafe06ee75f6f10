#pragma once

namespace pavo {

// The whole contract between the stub and the bundle: the stub creates one object of the bundle's entry-point
// class, starts it, and may stop it.
class TWCMIOExtensionStubSupportEntryPointProtocol {
public:
    // Publishes the camera.
    virtual void start() = 0;
    virtual void stop() = 0;

protected:
    ~TWCMIOExtensionStubSupportEntryPointProtocol() = default;
};

}  // namespace pavo
