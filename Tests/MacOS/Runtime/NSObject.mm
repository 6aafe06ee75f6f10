// The root class. Compiled without automatic reference counting: it is what counts.

#include "Tests/MacOS/Runtime/Runtime.h"

#include <Foundation/Foundation.h>
#include <objc/message.h>

#include <cstring>

extern "C" id objc_autorelease(id object);

namespace objc = pavo::test::objc;

namespace {

objc::ClassRecord* record(Class type)
{
    return reinterpret_cast<objc::ClassRecord*>(type);
}

Class classOf(id object)
{
    return reinterpret_cast<Class>(objc::classOf(object));
}

}  // namespace

@implementation NSObject

+ (instancetype)alloc
{
    return reinterpret_cast<id>(objc::allocate(record(self)));
}

+ (instancetype)new
{
    return [[self alloc] init];
}

+ (Class)class
{
    return self;
}

- (instancetype)init
{
    return self;
}

- (void)dealloc
{
    objc::destroy(reinterpret_cast<objc::Object*>(self));
}

- (Class)class
{
    return classOf(self);
}

- (Class)superclass
{
    return reinterpret_cast<Class>(record(classOf(self))->superclass);
}

- (instancetype)self
{
    return self;
}

- (BOOL)isEqual:(id)object
{
    return self == object;
}

- (NSUInteger)hash
{
    return reinterpret_cast<NSUInteger>(self);
}

- (BOOL)isProxy
{
    return NO;
}

- (BOOL)isKindOfClass:(Class)type
{
    for (auto* own = record(classOf(self)); own; own = own->superclass)
        if (own == record(type)) return YES;
    return NO;
}

- (BOOL)isMemberOfClass:(Class)type
{
    return classOf(self) == type;
}

- (BOOL)conformsToProtocol:(Protocol*)protocol
{
    return objc::classConforms(record(classOf(self)), reinterpret_cast<objc::ProtocolRecord*>(protocol));
}

- (BOOL)respondsToSelector:(SEL)selector
{
    return objc::classHasMethod(record(classOf(self)), sel_getName(selector));
}

- (id)performSelector:(SEL)selector
{
    return reinterpret_cast<id (*)(id, SEL)>(&objc_msgSend)(self, selector);
}

- (id)performSelector:(SEL)selector withObject:(id)object
{
    return reinterpret_cast<id (*)(id, SEL, id)>(&objc_msgSend)(self, selector, object);
}

- (id)performSelector:(SEL)selector withObject:(id)object1 withObject:(id)object2
{
    return reinterpret_cast<id (*)(id, SEL, id, id)>(&objc_msgSend)(self, selector, object1, object2);
}

- (NSString*)description
{
    const char* const name = class_getName(classOf(self));
    return objc_autorelease([[NSString alloc] initWithBytes:name
                                                     length:std::strlen(name)
                                                   encoding:NSUTF8StringEncoding]);
}

@end
