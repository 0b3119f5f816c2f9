#include "plugin/remotectrl.h"

#include <unistd.h>

#include "net/sockets.h"

namespace PluginRemoteCtrl {

const char* RemoteCtrl::PLUGIN_NAME = "remotectrl";
const char* RemoteCtrl::PLUGIN_DESC = "Plugin that adds tcp/ip interface";

namespace {

constexpr useconds_t kStopPollMicros = 100000;
constexpr double kCloseTimeout = 1.0;

}  // namespace

RemoteCtrl::RemoteCtrl() {
    mPort = mSettings.port;
}

std::int32_t RemoteCtrl::initialize(zn::IZenthi* host) {
    // One cycle per object: after onClose the listening socket is gone for good.
    if (mInitialized || mStopServer) return 0;
    mInitialized = true;
    mHost = host;
    mLog.attach(host);
    loadSettings();
    if (!mSettings.error.empty()) {
        mLog("%s", mSettings.error.c_str());  // fail closed: no server rather than a wider one
        return 0;
    }
    mThreads.start(&RemoteCtrl::threadWrapper, this);
    return 0;
}

void RemoteCtrl::onStart() {}

void RemoteCtrl::onClose() {
    stopServer(kCloseTimeout);
}

const char* RemoteCtrl::name() const {
    return PLUGIN_NAME;
}

const char* RemoteCtrl::description() const {
    return PLUGIN_DESC;
}

void* RemoteCtrl::privateInterface() {
    return nullptr;
}

// A host without a settings folder leaves the defaults.
void RemoteCtrl::loadSettings() {
    const char* dir = mHost ? mHost->configDir() : nullptr;
    if (dir == nullptr) return;
    mSettings = readPluginSettings(dir);
    mPort = mSettings.port;
}

void RemoteCtrl::stopServer(double timeout) {
    mStopServer = true;
    // shutdown() rather than close(): a pending accept() and a pending read return at once, while
    // the descriptors stay valid for the threads still using them.
    mCommandServer.wake();
    mChannel.shutdown();
    mAcquisition.stop();

    const double start = net::monotonicSeconds();
    while (!mThreads.allGone() && timeout > net::monotonicSeconds() - start)
        usleep(kStopPollMicros);
    if (!mThreads.allGone()) {
        pinModule();
        mLog(
            "A thread of the plug-in still runs %g s after the stop request: the module stays "
            "loaded until the process ends",
            timeout);
    }
    mCommandServer.release();
}

void RemoteCtrl::threadWrapper(void* self) {
    auto* plugin = static_cast<RemoteCtrl*>(self);
    plugin->mCommandServer.serverFunction();
    plugin->mServerFinished = true;
}

}  // namespace PluginRemoteCtrl
