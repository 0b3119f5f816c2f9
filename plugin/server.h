// The command server: the body of the plug-in's server thread. It listens on the configured port
// (and address), then accepts one client at a time, admits it, and serves it as a session.
//
// - Listening reuses the address (a host restarted at once is not refused while its last
//   session's connections sit in the closing wait). When listening fails, the host log says so
//   once, naming the port and the system's reason, and the server tries again every second until
//   it listens or is stopped.
// - A client outside AllowFrom is answered "ERROR: ACCESS DENIED" (on a TLS port: not a byte) and
//   closed before any line is read; the host log names its address (see refusals.h for the bound).
// - With TLS, an admitted client's handshake runs here, before the connection becomes the current
//   client, and must end within 5 s: a client that stalls in it, sends plain text or presents no
//   acceptable certificate never holds the session. The host log says "TLS handshake with A.B.C.D
//   failed: reason", within the same bound per address as refusals (the count of lines held back
//   is not told). A stop request ends a handshake within 0.1 s.
// - A failing accept() is retried after a short pause unless a stop was requested.
// - A connection accepted after the stop request is closed at once, not served.
//
// Threads: serverFunction runs on the server thread; wake() and release() on the host's thread
// while it stops the plug-in. mMutex guards the listening socket, which a failed listen replaces.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "plugin/hostlog.h"
#include "plugin/refusals.h"
#include "plugin/session.h"
#include "plugin/settings.h"

class TCPServerSocket;
class TCPSocket;

namespace net {
class LineStream;
}

namespace PluginRemoteCtrl {

class CommandServer {
public:
    CommandServer(const PluginSettings& settings, const SessionContext& sessions,
                  const HostLog& log);
    ~CommandServer();
    CommandServer(const CommandServer&) = delete;
    CommandServer& operator=(const CommandServer&) = delete;

    // Server thread: listens, then serves clients until a stop is requested.
    void serverFunction();
    // Makes a pending accept() return at once.
    void wake();
    // Deletes the listening socket; the server thread then no longer touches it.
    void release();

private:
    bool listenUntilStopped();
    bool admit(TCPSocket& client);
    void serve(TCPSocket* accepted);
    // The connection as its session reads it, or null when its TLS handshake failed.
    std::unique_ptr<net::LineStream> secure(std::unique_ptr<TCPSocket> client);

    const PluginSettings& mSettings;
    const SessionContext& mSessions;
    const HostLog& mLog;
    std::mutex mMutex;
    TCPServerSocket* mServer;  // guarded by mMutex
    RefusalLog mRefusals;      // server thread only, as is mHandshakeFailures
    RefusalLog mHandshakeFailures;
    SessionId mLastSession = kNoSession;
};

}  // namespace PluginRemoteCtrl
