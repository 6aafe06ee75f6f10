#include "Platform/CoreImage/mac/CIObjects.h"

namespace ci {

Context::Context() : state_(std::make_unique<State>([[CIContext alloc] init])) {}

Context::~Context() = default;

void Context::render(const Image& image, CVPixelBufferRef buffer)
{
    [state_->context render:image.recipe().image toCVPixelBuffer:buffer];
}

}  // namespace ci
