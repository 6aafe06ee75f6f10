#pragma once

#include <IOSurface/IOSurfaceRef.h>
