#include "CMIOExtensionSupport/BasicDefaultFrameGenerator.h"

#include "PavoLoggingSupport/Logger.h"
#include "Platform/Foundation/NSBundle.h"
#include "Platform/Support/Fatal.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace pavo {

namespace {

// Lies in the image of this module, so that the picture comes from the bundle of this module and not from
// that of the process that loaded it.
constinit const ns::Class generatorClass("BasicDefaultFrameGenerator");

const Logger& logger()
{
    static const Logger instance = Logger::plugin("BasicDefaultFrameGenerator");
    return instance;
}

ci::Image loadPicture()
{
    const auto path =
        ns::Bundle::bundleForClass(generatorClass).pathForResource("configure-pavo-full", "png");
    require(path.has_value(), "The bundle has no picture configure-pavo-full.png");
    auto picture = ci::Image::imageWithContentsOfFile(*path);
    require(picture.has_value(), "The picture configure-pavo-full.png cannot be read");
    return *std::move(picture);
}

std::string debugDescription(CGSize size)
{
    return "(" + floatingPointText(size.width) + ", " + floatingPointText(size.height) + ")";
}

// Cuts off the fraction.
std::int64_t wholePixels(double length)
{
    constexpr double kLimit = 0x1p63;  // the first number beyond the range, which itself is -2^63 to 2^63 - 1
    require(std::isfinite(length) && length >= -kLimit && length < kLimit,
            "A frame's size must be a number of pixels");
    return static_cast<std::int64_t>(length);
}

cf::Ref<CVPixelBufferRef> makeBuffer(std::int64_t width, std::int64_t height)
{
    // Present but empty: a surface with the system's own properties.
    const auto surfaceProperties =
        cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks));
    const void* key = kCVPixelBufferIOSurfacePropertiesKey;
    const void* value = surfaceProperties.get();
    const auto attributes =
        cf::adopt(CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks));
    cf::Ref<CVPixelBufferRef> buffer;
    const CVReturn status = CVPixelBufferCreate(kCFAllocatorDefault, static_cast<std::size_t>(width),
                                                static_cast<std::size_t>(height), kCVPixelFormatType_32BGRA,
                                                attributes.get(), buffer.receive());
    if (status != kCVReturnSuccess) return {};
    return buffer;
}

// The picture's size when it just covers the frame: one side fits, the other reaches over on both ends.
CGSize coveringSize(CGSize picture, CGSize frame)
{
    const double heightWithWidthFitted = picture.height / (picture.width / frame.width);
    if (heightWithWidthFitted < frame.height)
        return CGSizeMake(picture.width / (picture.height / frame.height), frame.height);
    return CGSizeMake(frame.width, heightWithWidthFitted);
}

}  // namespace

BasicDefaultFrameGenerator::BasicDefaultFrameGenerator() : image_(loadPicture()) {}

cf::Ref<CVPixelBufferRef> BasicDefaultFrameGenerator::generateFrame(CMFormatDescriptionRef formatDescription)
{
    const auto dimensions = CMVideoFormatDescriptionGetDimensions(formatDescription);
    return generateFrame(CGSizeMake(dimensions.width, dimensions.height));
}

cf::Ref<CVPixelBufferRef> BasicDefaultFrameGenerator::generateFrame(CGSize size)
{
    if (cachedFrame_ && cachedFrame_->size.width == size.width && cachedFrame_->size.height == size.height)
        return cachedFrame_->buffer;
    logger().info("Generating default frame for size: %{public}@", debugDescription(size));
    auto buffer = makeBuffer(wholePixels(size.width), wholePixels(size.height));
    if (!buffer) return {};
    context_.render(pictureCovering(size), buffer.get());
    cachedFrame_ = CachedFrame{buffer, size};
    return buffer;
}

ci::Image BasicDefaultFrameGenerator::pictureCovering(CGSize size) const
{
    const CGRect extent = image_.extent();
    const CGSize picture = CGSizeMake(CGRectGetWidth(extent), CGRectGetHeight(extent));
    const CGSize target = coveringSize(picture, size);
    const double scale = target.height / picture.height;
    const double aspectRatio = target.width / (scale * picture.width);

    auto filter = ci::Filter::filterWithName("CILanczosScaleTransform");
    require(filter.has_value(), "The system has no filter CILanczosScaleTransform");
    filter->setValue(image_, ci::kCIInputImageKey);
    filter->setValue(scale, ci::kCIInputScaleKey);
    filter->setValue(aspectRatio, ci::kCIInputAspectRatioKey);
    const auto scaled = filter->outputImage();
    require(scaled.has_value(), "The filter CILanczosScaleTransform gives no image");

    return scaled->imageByApplyingTransform(CGAffineTransformMakeTranslation(
        size.width * 0.5 - target.width * 0.5, size.height * 0.5 - target.height * 0.5));
}

}  // namespace pavo
