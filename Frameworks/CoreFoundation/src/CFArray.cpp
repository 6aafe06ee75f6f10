#include <CoreFoundation/CFArray.h>
