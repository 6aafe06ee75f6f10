#pragma once

// How a stub finds the entry point of the bundle where there is no Objective-C runtime to ask for a class:
// the bundle exports one constant under the name of the class, and that constant carries the class's
// operations. The names and the meaning are those of the class. For C and C++.

#ifdef __cplusplus
extern "C" {
#endif

// The one protocol that a stub is compiled against. All three operations are required; there are no others.
#define TWCMIOExtensionStubSupportEntryPointProtocolName "TWCMIOExtensionStubSupportEntryPointProtocol"

struct TWCMIOExtensionStubSupportEntryPoint {
    // Name of the protocol that the operations below implement. A stub checks it before it calls one.
    const char* protocolName;

    // A new entry point, with the camera built in memory but not published. The caller owns it: see release.
    void* (*init)(void);
    // Publishes the camera and returns; the process must go on running. Meant to be called once.
    void (*start)(void* self);
    // Does nothing: the camera ends with the process.
    void (*stop)(void* self);
    // Gives the entry point up, and with it the whole camera.
    void (*release)(void* self);
};

// The symbol that the bundle exports.
extern const struct TWCMIOExtensionStubSupportEntryPoint TWCMIOExtensionSupportEntryPoint;

#ifdef __cplusplus
}
#endif
