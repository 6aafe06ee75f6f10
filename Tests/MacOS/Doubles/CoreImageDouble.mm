#include "Tests/MacOS/Doubles/CoreImageDouble.h"

#include "Tests/MacOS/Doubles/Calls.h"
#include "Tests/MacOS/Doubles/FoundationDouble.h"
#include "Tests/MacOS/Runtime/Runtime.h"

#include <IOSurface/IOSurfaceObjC.h>

#include <cstring>
#include <sstream>

namespace objc = pavo::test::objc;

namespace {

std::string picturePath;
CGSize pictureSize;

std::string text(CGRect rect)
{
    std::ostringstream stream;
    stream << rect.origin.x << "," << rect.origin.y << " " << rect.size.width << "x" << rect.size.height;
    return stream.str();
}

}  // namespace

// Not what they are on macOS: an adapter must use the variables.
NSString* const kCIInputImageKey = @"image key";
NSString* const kCIInputScaleKey = @"scale key";
NSString* const kCIInputAspectRatioKey = @"aspect ratio key";

@implementation CIImage {
@public
    CGRect _extent;
}

- (instancetype)initWithContentsOfURL:(NSURL*)url
{
    pavo::test::recordCall(std::string("image ") + url.path.UTF8String);
    if (picturePath != url.path.UTF8String) return nil;
    self = [super init];
    _extent.size = pictureSize;
    return self;
}

- (CGRect)extent
{
    return _extent;
}

- (CIImage*)imageByApplyingTransform:(CGAffineTransform)matrix
{
    CIImage* const image = [[CIImage alloc] init];
    image->_extent = {{_extent.origin.x * matrix.a + matrix.tx, _extent.origin.y * matrix.d + matrix.ty},
                      {_extent.size.width * matrix.a, _extent.size.height * matrix.d}};
    return image;
}

@end

@implementation CIFilter {
    CIImage* _input;
    double _scale;
    double _aspectRatio;
}

- (instancetype)init
{
    self = [super init];
    _scale = 1;
    _aspectRatio = 1;
    return self;
}

+ (CIFilter*)filterWithName:(NSString*)name
{
    pavo::test::recordCall(std::string("filter ") + name.UTF8String);
    return [name isEqualToString:@"CILanczosScaleTransform"] ? [[CIFilter alloc] init] : nil;
}

- (void)setValue:(id)value forKey:(NSString*)key
{
    const bool isImage = [value isKindOfClass:[CIImage class]];
    if ([key isEqualToString:kCIInputImageKey] != isImage)
        objc::die("An input of another class: ", key.UTF8String);
    if (isImage)
        _input = value;
    else if ([key isEqualToString:kCIInputScaleKey])
        _scale = pavo::test::numberIn(value);
    else if ([key isEqualToString:kCIInputAspectRatioKey])
        _aspectRatio = pavo::test::numberIn(value);
    else
        objc::die("No such input: ", key.UTF8String);
}

- (CIImage*)outputImage
{
    if (!_input) return nil;
    return [_input imageByApplyingTransform:{_scale * _aspectRatio, 0, 0, _scale, 0, 0}];
}

@end

@implementation CIContext

- (void)render:(CIImage*)image toCVPixelBuffer:(CVPixelBufferRef)buffer
{
    const auto width = CVPixelBufferGetWidth(buffer);
    const auto height = CVPixelBufferGetHeight(buffer);
    pavo::test::recordCall("render " + text(image.extent) + " into " + std::to_string(width) + "x" +
                           std::to_string(height));
    CVPixelBufferLockBaseAddress(buffer, 0);
    std::memset(CVPixelBufferGetBaseAddress(buffer), pavo::test::kRenderedByte,
                CVPixelBufferGetBytesPerRow(buffer) * height);
    CVPixelBufferUnlockBaseAddress(buffer, 0);
}

@end

@implementation IOSurface
@end

namespace pavo::test {

void setPicture(const std::string& path, CGSize size)
{
    picturePath = path;
    pictureSize = size;
}

}  // namespace pavo::test
