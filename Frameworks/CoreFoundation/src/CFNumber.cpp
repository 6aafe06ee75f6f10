#include <CoreFoundation/CFNumber.h>
