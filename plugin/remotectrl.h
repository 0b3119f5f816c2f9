// RemoteCtrl: the plug-in that gives remote programs a line-based TCP command interface to the
// host's acquisition devices.
//
// Life cycle. The module holds one static RemoteCtrl. initialize() reads its settings from
// "remotectrl.ini" in the host's settings directory (plugin/settings.h: the port, default 59876,
// the listening address, the clients allowed, an idle time-out) and starts the detached server
// thread; onClose() stops it. One initialize/onClose cycle per object: a second initialize() after
// onClose() does nothing and returns 0.
//
// Protocol. One client at a time; one command per line, NAME(arg,arg,...). Replies are single
// lines: "OK", "YES", "NO" or "ERROR: ...". START, STOP and unknown names are handled by
// processCommand, the GUI_ commands by the gui* handlers; STOP, an accepted START (until its
// acquisition ends), GUI_START, GUI_SETFILE and GUI_STOP send nothing on success.
//
// Threads and ownership (the one place that says who touches what):
// - host thread: initialize, onStart, onClose (stopServer), the destructor. Writes mHost and mPort
//   before the server thread exists; sets mStopServer.
// - server thread: serverFunction, handleClient and every command handler. Owns the accepted
//   connection; publishes it in mClient under mClientMutex. Writes the acquisition fields only
//   while mAcqRunning is false, before it starts the acquisition thread.
// - acquisition thread (at most one): copies the acquisition fields at its start, runs the
//   acquisition, returns the plug-in to idle (mAcqDev, mAcqRunning) and then sends its reply.
// mClientMutex guards mClient, the replacement of mServer and every reply send, so a reply never
// goes to a deleted socket and two reply lines never interleave. mAcqMutex orders a STOP with the
// acquisition thread's call into the device (mAcqStopRequested, mAcqCalled). The flags, mAcqDev,
// the session counters and the live acquisition-thread count are atomics.
//
// Settled choices:
// - Stopping wakes the server thread: the listening socket and the current client connection are
//   shut down (closing alone does not end a pending accept on Linux), so onClose returns after one
//   poll interval. A running acquisition is aborted too, and onClose waits (within its time-out)
//   for the acquisition thread to finish, so no thread of ours runs on after the host unloads us.
// - The command language (trimming, the split at "(", quotes, name matching) and every reply
//   text live in protocol/, shared with the clients.
// - If the acquisition thread cannot be started, the reply is "ERROR: ACQUISITION FAILED" and the
//   plug-in stays idle. A STOP that arrives before the acquisition thread has called the device
//   keeps the run from starting; the START is then answered "ERROR: ACQUISITION FAILED" too.
// - Listening reuses the address (a host restarted at once is not refused while its last
//   session's connections sit in the closing wait). When listening fails the host log says so
//   once and the server tries again every second until it listens or is stopped.
// - Settings that do not parse leave the plug-in without a server (the host log names the key).
//   A client outside AllowFrom is answered "ERROR: ACCESS DENIED" and closed before any line is
//   read; the host log names its address.
// - A line longer than 65,536 bytes is answered "ERROR: COMMAND TOO LONG" and dropped up to its
//   line feed; the session goes on. Text that arrived before a read time-out is kept, so a slow
//   line is carried out whole.
// - Replies are never dropped while their client stays connected: a reply waits however late the
//   client reads, until the client goes, a stop is requested, or the client has read nothing for
//   stalledClientLimit seconds (60 by default), which disconnects it with a host log line.
// - A failing accept() is retried after a short pause unless a stop was requested.
// - The acquisition thread returns the plug-in to idle before it sends "OK", so a START sent the
//   moment "OK" arrives is accepted.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/interfaces.h"
#include "plugin/settings.h"

class TCPSocket;
class TCPServerSocket;

namespace PluginRemoteCtrl {

// Runs func(arg) on a new detached thread. Returns 0, or -1 when the thread could not be created
// (the start record is then released and func never runs).
int createThread(void (*func)(void*), void* arg);

class RemoteCtrl : public zn::IZnPlugin {
public:
    static const char* PLUGIN_NAME;
    static const char* PLUGIN_DESC;

    RemoteCtrl();
    virtual ~RemoteCtrl();
    RemoteCtrl(const RemoteCtrl&) = delete;
    RemoteCtrl& operator=(const RemoteCtrl&) = delete;

    // zn::IZnPlugin
    std::int32_t initialize(zn::IZenthi* host) override;
    void onStart() override;
    void onClose() override;
    const char* name() const override;
    const char* description() const override;
    void* privateInterface() override;

    // Raises the stop request, wakes the server thread and aborts a running acquisition, waits at
    // most timeout seconds (polling every 100 ms) for both threads to finish, then deletes the
    // listening socket. A timeout of 0 or less does not wait at all.
    void stopServer(double timeout);

    // The port the server listens on (its low 16 bits) and reports in its log message.
    int port() const { return mPort; }

    // How long a reply may wait for a client that reads nothing before the client is
    // disconnected. Set before initialize().
    void setStalledClientLimit(double seconds) { mStalledClientLimit = seconds; }

    // The command language's tokenizer (see protocol/command_language.h).
    static std::optional<std::vector<std::string>> tokenizeQuotedString(
        const std::string& text, const std::string& delimiters);

    // Carries out one command line; replies go to the current client.
    void processCommandString(std::string line);
    void processCommand(std::string name, std::vector<std::string> args);

    void guiStart(std::vector<std::string> args);
    void guiSetFile(std::vector<std::string> args);
    void guiIsRunning(std::vector<std::string> args);
    void guiStop(std::vector<std::string> args);

private:
    static void threadWrapper(void* self);
    static void acqThreadWrapper(void* self);

    void loadSettings();
    template <typename... Args>
    void log(const char* format, Args... args);
    int serverFunction();
    bool listenUntilStopped();
    bool admit(TCPSocket* client);
    int handleClient(TCPSocket* client);
    bool isIdleTooLong(unsigned long session, double lastLineAt) const;
    bool publishClient(TCPSocket* client);
    void unpublishClient();
    void acqFunction();
    void startAcquisition(const std::vector<std::string>& args);
    void abortRunningAcquisition();
    bool threadsFinished() const;

    // Sends one reply line on the current client, if there is one.
    void sendReply(const std::string& line);

    zn::IDev* getDev(int index);
    zn::IDevControl* getDevCtrl();
    bool resolveGuiTarget(const std::vector<std::string>& args, size_t expectedCount,
                          zn::IDev*& device, zn::IDevControl*& control);

    zn::IZenthi* mHost = nullptr;
    TCPServerSocket* mServer;
    TCPSocket* mClient = nullptr;  // guarded by mClientMutex
    std::atomic<zn::IDev*> mAcqDev{nullptr};
    int mPort = 59876;
    std::atomic<bool> mServerFinished{false};
    std::atomic<bool> mStopServer{false};
    // Written by the server thread while idle, read by the acquisition thread at its start.
    std::string mAcqFileName;
    int mAcqCount = 0;
    double mAcqTime = 0.0;
    std::atomic<bool> mAcqRunning{false};

    PluginSettings mSettings;           // host thread, before the server thread starts
    double mStalledClientLimit = 60.0;  // likewise
    std::atomic<unsigned long> mSessionCount{0};
    std::atomic<unsigned long> mAcqSession{0};  // the session that started the acquisition
    std::mutex mAcqMutex;
    bool mAcqStopRequested = false;  // guarded by mAcqMutex
    bool mAcqCalled = false;         // guarded by mAcqMutex: the device's run was called

    std::mutex mClientMutex;
    std::atomic<bool> mServerExited{false};  // set on every way out of the server thread
    std::atomic<int> mAcqThreads{0};         // acquisition threads that have not yet finished
    // Kernel ids of the last server and acquisition threads: a thread has left this module's code
    // only once the kernel has dropped it, which is what unloading the module must wait for.
    std::atomic<pid_t> mServerTid{0};
    std::atomic<pid_t> mAcqTid{0};
    bool mInitialized = false;  // host thread only
};

}  // namespace PluginRemoteCtrl
