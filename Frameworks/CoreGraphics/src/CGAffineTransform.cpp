#include <CoreGraphics/CGAffineTransform.h>
