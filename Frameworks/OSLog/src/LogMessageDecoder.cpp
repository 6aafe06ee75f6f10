#include <os/log.h>
