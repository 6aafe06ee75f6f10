#pragma once

#include <CoreFoundation/CoreFoundation.h>

typedef CFIndex CMItemCount;
