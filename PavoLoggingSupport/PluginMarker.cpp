#include "PavoLoggingSupport/PluginMarker.h"

namespace pavo {

const ns::Class& pluginMarkerClass()
{
    static constinit const ns::Class type("_PluginMarker");
    return type;
}

}  // namespace pavo
