// Loading plug-in modules the way the host does: dlopen, then the one exported entry function.
//
// A path without a slash is taken relative to the working folder rather than searched for along
// the library path. Modules are never unloaded: plug-in threads may outlive onClose().
#pragma once

#include <string>

#include "host/interfaces.h"

namespace znhost {

struct LoadedPlugin {
    void* module = nullptr;
    zn::IZnPlugin* plugin = nullptr;
};

// True with `loaded` filled in; otherwise false with a one-line `error` naming the path.
bool loadPlugin(const std::string& path, LoadedPlugin& loaded, std::string& error);

// The installed module beside an installed znhost (../lib/remotectrl/plugins/remotectrl.so in the
// usual layout) when it exists, else the build tree's ../lib/remotectrl.so, both relative to the
// folder of the running executable; the relative text "../lib/remotectrl.so" when that folder
// cannot be found.
std::string defaultPluginPath();

}  // namespace znhost
