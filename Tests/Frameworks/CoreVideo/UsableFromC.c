// What C++ code cannot show: that the declarations are C.
#include <CoreVideo/CoreVideo.h>

size_t rowBytesFromC(void);

size_t rowBytesFromC(void)
{
    CVPixelBufferRef buffer = NULL;
    if (CVPixelBufferCreate(kCFAllocatorDefault, 64, 48, kCVPixelFormatType_32BGRA, NULL, &buffer)) return 0;
    const size_t bytes = CVPixelBufferGetBytesPerRow(buffer);
    CVPixelBufferRelease(buffer);
    return bytes;
}
