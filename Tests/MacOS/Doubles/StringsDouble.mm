// Strings, numbers, errors and other single values.

#include "Tests/MacOS/Doubles/FoundationDouble.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <functional>
#include <string>

// What the compiler writes for a literal: three fields after the class.
@interface PavoConstantString : NSString {
    int _flags;
    const char* _text;
    long _length;
}
@end

@interface PavoString : NSString {
@public
    std::string _text;
}
@end

// Stands for a string of Core Foundation.
@interface PavoBridgedString : NSString
@end

@implementation NSString

+ (instancetype)alloc
{
    return self == [NSString class] ? static_cast<id>([PavoString alloc]) : [super alloc];
}

- (instancetype)initWithBytes:(const void*)bytes length:(NSUInteger)length encoding:(NSStringEncoding)encoding
{
    return [super init];
}

- (const char*)UTF8String
{
    return nullptr;
}

- (BOOL)isEqualToString:(NSString*)string
{
    return std::string_view(self.UTF8String) == string.UTF8String;
}

- (BOOL)isEqual:(id)object
{
    return [object isKindOfClass:[NSString class]] && [self isEqualToString:object];
}

- (NSUInteger)hash
{
    return std::hash<std::string_view>()(self.UTF8String);
}

- (NSString*)description
{
    return self;
}

@end

@implementation PavoString

- (instancetype)initWithBytes:(const void*)bytes length:(NSUInteger)length encoding:(NSStringEncoding)encoding
{
    const auto string = CFStringCreateWithBytes(kCFAllocatorDefault, static_cast<const UInt8*>(bytes),
                                                static_cast<CFIndex>(length), kCFStringEncodingUTF8, false);
    if (!string || encoding != NSUTF8StringEncoding) return nil;
    CFRelease(string);
    self = [super init];
    _text.assign(static_cast<const char*>(bytes), length);
    return self;
}

- (const char*)UTF8String
{
    return _text.c_str();
}

@end

@implementation PavoConstantString

- (const char*)UTF8String
{
    return _text;
}

@end

asm(".globl __CFConstantStringClassReference\n"
    ".set __CFConstantStringClassReference, OBJC_CLASS_$_PavoConstantString\n");

@implementation PavoBridgedString

- (const char*)UTF8String
{
    return CFStringGetCStringPtr((__bridge CFStringRef)self, kCFStringEncodingUTF8);
}

@end

@implementation NSValue
@end

@implementation NSNumber {
@public
    double _value;
    bool _isBoolean;
}

+ (NSNumber*)numberWithBool:(BOOL)value
{
    NSNumber* const number = [[NSNumber alloc] init];
    number->_value = value;
    number->_isBoolean = true;
    return number;
}

+ (NSNumber*)numberWithUnsignedInt:(unsigned int)value
{
    return [NSNumber numberWithDouble:value];
}

+ (NSNumber*)numberWithDouble:(double)value
{
    NSNumber* const number = [[NSNumber alloc] init];
    number->_value = value;
    return number;
}

- (BOOL)boolValue
{
    return _value != 0;
}

- (unsigned int)unsignedIntValue
{
    return static_cast<unsigned int>(_value);
}

- (NSString*)description
{
    return pavo::test::makeString(std::to_string(_value));
}

@end

@implementation NSNull

+ (NSNull*)null
{
    return [[NSNull alloc] init];
}

@end

@implementation NSError {
    NSString* _domain;
    NSInteger _code;
}

+ (instancetype)errorWithDomain:(NSString*)domain code:(NSInteger)code userInfo:(NSDictionary*)userInfo
{
    NSError* const error = [[NSError alloc] init];
    error->_domain = domain;
    error->_code = code;
    return error;
}

- (NSString*)domain
{
    return _domain;
}

- (NSInteger)code
{
    return _code;
}

@end

@implementation NSData {
    std::string _content;
}

+ (instancetype)dataWithBytes:(const void*)bytes length:(NSUInteger)length
{
    NSData* const data = [[NSData alloc] init];
    data->_content.assign(static_cast<const char*>(bytes), length);
    return data;
}

- (NSUInteger)length
{
    return _content.size();
}

- (const void*)bytes
{
    return _content.data();
}

@end

@implementation NSURL {
    NSString* _path;
}

+ (NSURL*)fileURLWithPath:(NSString*)path
{
    NSURL* const url = [[NSURL alloc] init];
    url->_path = path;
    return url;
}

- (NSString*)path
{
    return _path;
}

@end

namespace pavo::test {

NSString* makeString(std::string_view text)
{
    return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

double numberIn(NSNumber* number)
{
    return number->_value;
}

bool isBoolean(NSNumber* number)
{
    return number->_isBoolean;
}

}  // namespace pavo::test
