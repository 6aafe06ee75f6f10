#pragma once

#include <CoreGraphics/CoreGraphics.h>
#include <CoreVideo/CoreVideo.h>

#include <optional>
#include <string>
#include <vector>

// Stands in for CoreImage: decodes and draws nothing, records what is asked of it. Everything is safe from
// any thread. resetCoreImageDouble() restores the beginning: pictures of 2560 × 1440 that can be read, a
// filter that works, nothing recorded.
namespace pavo::test {

void resetCoreImageDouble();

// The extent of every picture that is read; none: no picture can be read.
void setPictureExtent(std::optional<CGRect> extent);
void setFilterExists(bool exists);
void setFilterHasOutput(bool hasOutput);

// What was rendered, and how it came about.
struct RecordedRender {
    CVPixelBufferRef buffer;  // only to compare
    std::string path;
    double scale;
    double aspectRatio;
    CGAffineTransform transform;
};
std::vector<RecordedRender> recordedRenders();

// Every call in order: "load <path>", "filter <name>", "set <key>", "output", "transform", "render".
std::vector<std::string> recordedCoreImageCalls();

}  // namespace pavo::test
