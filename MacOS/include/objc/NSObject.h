#pragma once

#include <objc/objc.h>

typedef long NSInteger;
typedef unsigned long NSUInteger;

@class NSString;
@class Protocol;

// Declared whole: the compiler writes the protocol into every image that adopts it.
@protocol NSObject
- (BOOL)isEqual:(id)object;
@property(readonly) NSUInteger hash;
@property(readonly) Class superclass;
- (Class)class;
- (instancetype)self;
- (id)performSelector:(SEL)selector;
- (id)performSelector:(SEL)selector withObject:(id)object;
- (id)performSelector:(SEL)selector withObject:(id)object1 withObject:(id)object2;
- (BOOL)isProxy;
- (BOOL)isKindOfClass:(Class)type;
- (BOOL)isMemberOfClass:(Class)type;
- (BOOL)conformsToProtocol:(Protocol*)protocol;
- (BOOL)respondsToSelector:(SEL)selector;
@property(readonly, copy) NSString* description;
@optional
@property(readonly, copy) NSString* debugDescription;
@end

__attribute__((objc_root_class))
@interface NSObject<NSObject> {
    Class isa;
}
+ (instancetype)alloc;
+ (instancetype)new;
+ (Class)class;
- (instancetype)init __attribute__((objc_designated_initializer));
- (void)dealloc;
@end
