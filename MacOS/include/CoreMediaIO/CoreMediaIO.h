#pragma once

// The classes of camera extensions that we use. All of their objects know their source weakly. Our own
// declarations of the documented interface.

#include <CoreMediaIO/CMIOExtensionDevice.h>
#include <CoreMediaIO/CMIOExtensionProperties.h>
#include <CoreMediaIO/CMIOExtensionProvider.h>
#include <CoreMediaIO/CMIOExtensionStream.h>
