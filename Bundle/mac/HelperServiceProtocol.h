#pragma once

#include <Foundation/Foundation.h>

// The protocol of the privileged helper as the system reads it, with the extended types of its methods.
@protocol BosunServiceProtocol <NSObject>
- (void)getCommunicationVersionWithReply:(void (^)(uint64_t version))reply;
- (void)ping;
- (void)launchStudioIfNeeded;
- (void)doInstallWithStepIdentifier:(NSString*)stepIdentifier
                     encodedContext:(NSData*)encodedContext
     encodedFrozenInstallationState:(NSData*)encodedFrozenInstallationState
                              reply:(void (^)(NSData* result, NSError* error))reply;
- (void)doComponentUninstallWithReply:(void (^)(NSError* error))reply;
- (void)coreadiosdWithReply:(void (^)(NSError* error))reply;
- (void)checkCMIOExtensionRegisteredWithReply:(void (^)(BOOL isRegistered))reply;
@end
