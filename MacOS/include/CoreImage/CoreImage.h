#pragma once

#include <CoreGraphics/CoreGraphics.h>
#include <CoreVideo/CoreVideo.h>
#include <Foundation/Foundation.h>

// The classes of CoreImage that we use. Our own declarations of the documented interface.

FOUNDATION_EXPORT NSString* const kCIInputImageKey;
FOUNDATION_EXPORT NSString* const kCIInputScaleKey;
FOUNDATION_EXPORT NSString* const kCIInputAspectRatioKey;

@interface CIImage : NSObject
// Nil where the picture cannot be read.
- (instancetype)initWithContentsOfURL:(NSURL*)url;
@property(nonatomic, readonly) CGRect extent;
- (CIImage*)imageByApplyingTransform:(CGAffineTransform)matrix;
@end

@interface CIFilter : NSObject
// Nil where there is no such filter.
+ (CIFilter*)filterWithName:(NSString*)name;
@property(readonly, nonatomic) CIImage* outputImage;
@end

@interface CIContext : NSObject
// The buffer's lower left corner is the image's point (0, 0).
- (void)render:(CIImage*)image toCVPixelBuffer:(CVPixelBufferRef)buffer;
@end
