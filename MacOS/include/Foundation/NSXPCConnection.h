#pragma once

#include <Foundation/NSObjCRuntime.h>

@class NSXPCConnection;
@class NSXPCInterface;
@class NSXPCListener;
@class NSXPCListenerEndpoint;

typedef NSUInteger NSXPCConnectionOptions;
enum : NSXPCConnectionOptions { NSXPCConnectionPrivileged = 1 << 12 };

@protocol NSXPCProxyCreating
- (id)remoteObjectProxy;
- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler;
@optional
// Messages with a reply block the caller until the reply or the error handler has run on its thread.
- (id)synchronousRemoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler;
@end

@interface NSXPCConnection : NSObject <NSXPCProxyCreating>
- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options;
- (instancetype)initWithListenerEndpoint:(NSXPCListenerEndpoint*)endpoint;
@property(retain) NSXPCInterface* exportedInterface;
@property(retain) id exportedObject;
@property(retain) NSXPCInterface* remoteObjectInterface;
@property(readonly, retain) id remoteObjectProxy;
@property(copy) void (^interruptionHandler)(void);
@property(copy) void (^invalidationHandler)(void);
@property(readonly) pid_t processIdentifier;
- (void)resume;
- (void)invalidate;
@end

@protocol NSXPCListenerDelegate <NSObject>
@optional
- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)newConnection;
@end

@interface NSXPCListener : NSObject
+ (NSXPCListener*)anonymousListener;
@property(weak) id<NSXPCListenerDelegate> delegate;
@property(readonly, retain) NSXPCListenerEndpoint* endpoint;
- (void)resume;
- (void)invalidate;
@end

@interface NSXPCListenerEndpoint : NSObject
@end

@interface NSXPCInterface : NSObject
// The protocol must have been compiled: its methods' extended types are read.
+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol;
@end
