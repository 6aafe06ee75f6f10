#include <IOSurface/IOSurface.h>
