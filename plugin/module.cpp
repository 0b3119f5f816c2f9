// The module's entry point: the host looks up znGetPlugin and receives the one plug-in object.
// It is the only symbol the module exports (see exports.map).
#include "plugin/remotectrl.h"

namespace PluginRemoteCtrl {

// Constructed when the module is loaded; destroyed when it is unloaded or the process ends.
RemoteCtrl remoteCtrl;

}  // namespace PluginRemoteCtrl

extern "C" __attribute__((visibility("default"))) zn::IZnPlugin* znGetPlugin() {
    return &PluginRemoteCtrl::remoteCtrl;
}
