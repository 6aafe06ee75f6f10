// What C++ code cannot show: that the declarations are C.
#include <IOSurface/IOSurface.h>

size_t bytesFromC(CFDictionaryRef properties);

size_t bytesFromC(CFDictionaryRef properties)
{
    IOSurfaceRef surface = IOSurfaceCreate(properties);
    const size_t bytes = IOSurfaceGetBytesPerRow(surface) * IOSurfaceGetHeight(surface);
    CFRelease(surface);
    return bytes;
}
