// What C++ code cannot show: that the declarations are C.
#include <Security/Security.h>

OSStatus authorizeFromC(void);

OSStatus authorizeFromC(void)
{
    AuthorizationRef authorization = NULL;
    AuthorizationItem item = {"com.example.right", 0, NULL, 0};
    AuthorizationRights rights = {1, &item};
    OSStatus status = AuthorizationCreate(NULL, NULL, kAuthorizationFlagDefaults, &authorization);
    if (status == errAuthorizationSuccess)
        status = AuthorizationCopyRights(authorization, &rights, NULL, kAuthorizationFlagDefaults, NULL);
    AuthorizationFree(authorization, kAuthorizationFlagDefaults);
    return status;
}
