#pragma once

#include <Foundation/Foundation.h>

#include <cstdint>
#include <memory>
#include <vector>

// In place of NSXPC: listeners and connections without a peer process. Calls are recorded (Calls.h). What is
// resumed keeps itself alive until it is invalidated, as the system's objects do.
//
// The far end is played by the test, on its own thread. Where messages are carried (XPCLine.h), it is another
// connection of this process, and nothing runs on the test's thread.

namespace pavo::test {
class XPCLine;
}

@interface NSXPCInterface ()
@property(nonatomic, readonly) Protocol* protocol;
@end

@interface NSXPCListenerEndpoint ()
- (instancetype)initWithPort:(std::uint32_t)port listener:(NSXPCListener*)listener;
@property(nonatomic, readonly) NSXPCListener* listener;
@end

@interface NSXPCConnection ()
@property(nonatomic, readonly) NSString* serviceName;
@property(nonatomic, readonly) NSXPCConnectionOptions options;
@property(nonatomic, readonly) NSXPCListenerEndpoint* endpoint;
@property(nonatomic, readonly) BOOL isResumed;
@property(nonatomic, readonly) BOOL isInvalidated;
// The object of the far end, which gets what is sent to the proxy.
@property(atomic, strong) id peer;
@property(atomic) pid_t peerProcess;
// Null where no messages are carried.
@property(nonatomic, readonly) const std::shared_ptr<pavo::test::XPCLine>& line;
// The connection is lost for good: its invalidation handler runs, then it drops what it keeps.
- (void)failWithInvalidation;
// The peer went away: its interruption handler runs.
- (void)failWithInterruption;
@end

@interface NSXPCListener ()
@property(nonatomic, readonly) std::uint32_t port;
@property(nonatomic, readonly) BOOL isResumed;
// A peer dials. The delegate is asked; a refused connection is invalidated.
- (NSXPCConnection*)connectPeer:(id)peer;
// The same on the listener's queue, for the end of a line.
- (void)askFor:(NSXPCConnection*)connection;
@property(nonatomic, readonly) BOOL isInvalidated;
@end

namespace pavo::test {

std::vector<NSXPCListener*> listeners();
std::vector<NSXPCConnection*> connections();
// Everything that was resumed ends without telling anybody.
void endAllXPC();

}  // namespace pavo::test
