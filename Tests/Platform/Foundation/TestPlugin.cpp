#include "Platform/Foundation/NSBundle.h"

namespace {

const ns::Class pluginClass("PluginClass");

}  // namespace

extern "C" const ns::Class* pavoTestPluginClass()
{
    return &pluginClass;
}
