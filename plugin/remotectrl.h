// RemoteCtrl: the plug-in that gives remote programs a line-based TCP command interface to the
// host's acquisition devices. The module holds one static RemoteCtrl (module.cpp).
//
// Life cycle. initialize() reads "remotectrl.ini" in the host's settings folder (settings.h) and
// starts the detached server thread; settings that cannot be honoured leave the plug-in without a
// server, and the host log names the file and the problem. onClose() stops the server, ends a
// running acquisition and waits at most one second for the plug-in's threads to leave its code;
// a thread still running then pins the module (threads.h), so the host's unload never frees code
// that runs. One initialize/onClose cycle per object: a second initialize() after onClose() does
// nothing and returns 0.
//
// Where each job lives: server.h (listening, accepting, admission), session.h (one connection:
// lines, idle rule, TCP_NODELAY), commands.h (dispatch and handlers), acquisition.h (an accepted
// START's run, its owner, STOP), channel.h (replies to the current session), threads.h.
//
// Threads and ownership (the one place that says who touches what):
// - host thread: initialize, onStart, onClose (stopServer), the destructor. Writes mHost, mPort
//   and mSettings before the server thread exists, and nothing of them later; raises mStopServer.
// - server thread: the accept loop, every session and every command handler, one at a time.
//   Owns each accepted connection and publishes it in the channel while its session runs.
// - acquisition thread (at most one) and its abort-retry thread: the fields of Acquisition, under
//   its mutex; the final reply goes through the channel, whose mutex guards the published
//   connection and every send on it.
// mStopServer and mServerFinished are atomics; ThreadTracker counts every thread of ours.
//
// Settled choices:
// - Stopping wakes the server thread: the listening socket and the current connection are shut
//   down (closing alone does not end a pending accept on Linux), so onClose returns as soon as the
//   threads are gone rather than after a whole second.
// - An acquisition's final reply goes only to the session that started it (acquisition.h).
#pragma once

#include <atomic>
#include <cstdint>

#include "host/interfaces.h"
#include "plugin/acquisition.h"
#include "plugin/channel.h"
#include "plugin/commands.h"
#include "plugin/hostlog.h"
#include "plugin/server.h"
#include "plugin/session.h"
#include "plugin/settings.h"
#include "plugin/threads.h"

namespace PluginRemoteCtrl {

class RemoteCtrl : public zn::IZnPlugin {
public:
    static const char* PLUGIN_NAME;
    static const char* PLUGIN_DESC;

    RemoteCtrl();
    virtual ~RemoteCtrl() = default;
    RemoteCtrl(const RemoteCtrl&) = delete;
    RemoteCtrl& operator=(const RemoteCtrl&) = delete;

    // zn::IZnPlugin
    std::int32_t initialize(zn::IZenthi* host) override;
    void onStart() override;
    void onClose() override;
    const char* name() const override;
    const char* description() const override;
    void* privateInterface() override;

    // Raises the stop request, wakes the server thread and ends a running acquisition, waits at
    // most timeout seconds (polling every 100 ms) for every thread of ours to leave the module's
    // code, pins the module when one has not, then deletes the listening socket.
    void stopServer(double timeout);

    // The port from the settings; only its low 16 bits reach the socket.
    int port() const { return mPort; }

    // How long a reply may wait for a client that reads nothing before the client is
    // disconnected. Set before initialize().
    void setStalledClientLimit(double seconds) { mChannel.setStalledClientLimit(seconds); }

private:
    static void threadWrapper(void* self);
    void loadSettings();

    zn::IZenthi* mHost = nullptr;
    int mPort;
    std::atomic<bool> mServerFinished{false};
    std::atomic<bool> mStopServer{false};
    bool mInitialized = false;
    PluginSettings mSettings;

    HostLog mLog{PLUGIN_NAME};
    ThreadTracker mThreads;
    ClientChannel mChannel{mStopServer, mLog};
    Acquisition mAcquisition{mThreads, mChannel, mLog};
    Commands mCommands{mHost, mAcquisition, mChannel};
    SessionContext mSessions{mStopServer, mChannel, mCommands, mAcquisition, mSettings};
    CommandServer mCommandServer{mSettings, mSessions, mLog};
};

}  // namespace PluginRemoteCtrl
