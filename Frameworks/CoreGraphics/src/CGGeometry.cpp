#include <CoreGraphics/CGGeometry.h>
