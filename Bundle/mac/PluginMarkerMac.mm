#include <objc/NSObject.h>

// A class without content in the image of the logging module: the system finds the bundle of an image by the
// classes in it.
__attribute__((objc_runtime_name("PavoLoggingSupport._PluginMarker")))
@interface PavoPluginMarker : NSObject
@end

@implementation PavoPluginMarker
@end
