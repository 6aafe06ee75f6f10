#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionStream.h"

#include <CoreMediaIO/CoreMediaIO.h>

// Observes a stream's clients for a C++ closure, from its creation until `end`.
//
// Ownership: keeps the stream and the closure until `end`. The stream does not keep its observers.
// Threads:   the closure runs on the thread that changes the clients; `end` may be called from any, also from
//            the closure.
@interface PavoStreamingClientsObserver : NSObject
- (instancetype)init __attribute__((unavailable));
- (instancetype)initWithStream:(CMIOExtensionStream*)stream
                       handler:(std::function<void(const cmio::ExtensionStream::ClientsChange&)>)handler
    __attribute__((objc_designated_initializer));
// After it returns no call of the closure begins.
- (void)end;
@end
