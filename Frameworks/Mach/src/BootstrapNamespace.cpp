#include <servers/bootstrap.h>
