// What C++ code cannot show: that the declarations are C.
#include <os/log.h>
#include <os/log_printf.h>

void logFromC(void);

void logFromC(void)
{
    os_log_printf(OS_LOG_DEFAULT, OS_LOG_TYPE_FAULT, "%s", "from C");
}
