#include <CoreVideo/CoreVideo.h>
