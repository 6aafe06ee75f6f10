// What C++ code cannot show: that the declarations are C.
#include <ServiceManagement/ServiceManagement.h>

CFIndex blessFromC(void);

CFIndex blessFromC(void)
{
    CFErrorRef error = NULL;
    if (SMJobBless(CFSTR("another domain"), CFSTR("label"), NULL, &error)) return 0;
    const CFIndex code = CFErrorGetCode(error);
    CFRelease(error);
    return code;
}
