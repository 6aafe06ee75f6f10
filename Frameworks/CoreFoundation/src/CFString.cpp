#include <CoreFoundation/CFString.h>
