#include "Tests/TestHeaders.h"
