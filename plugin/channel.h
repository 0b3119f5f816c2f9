// The connection of the session in progress, shared by the server thread (replies to commands) and
// the acquisition thread (an acquisition's final reply).
//
// Sessions are numbered from 1 as they are accepted; a reply names the session it belongs to and
// goes out only while that session is the current one, so an acquisition's reply never reaches a
// later client. One mutex guards the published connection and every send on it: two reply lines
// never interleave, and no reply reaches a connection that the session has let go.
//
// A reply is sent once, in slices, so a stop request ends the wait at once: a slice that times out
// goes on from the bytes already sent. A reply waits however late its client reads, until the
// client goes, a stop is requested, or the client has taken no byte for the stalled-client limit
// (60 s by default); then the connection is shut down (its session sees a closed peer) and the
// host log names the client.
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "plugin/hostlog.h"

namespace net {
class LineStream;
}

namespace PluginRemoteCtrl {

using SessionId = unsigned long;
constexpr SessionId kNoSession = 0;

class ClientChannel {
public:
    ClientChannel(const std::atomic<bool>& stopRequested, const HostLog& log)
        : mStopRequested(stopRequested), mLog(log) {}

    // Host thread, before the server starts.
    void setStalledClientLimit(double seconds) { mStalledClientLimit = seconds; }

    // Publishes `socket` as session `id`'s connection, unless a stop was requested (false). The
    // stop request is raised before shutdown() takes the lock, so either shutdown() sees this
    // connection or this sees the request.
    bool open(SessionId id, net::LineStream* socket);
    // Lets the connection go: replies to its session go to no one from now on.
    void close();
    // Sends `line` to session `id` if it is still the current one; false when it has ended.
    bool send(SessionId id, const std::string& line);
    // Wakes a read pending on the current connection: it sees a closed peer.
    void shutdown();

private:
    void sendLocked(const std::string& line);

    const std::atomic<bool>& mStopRequested;
    const HostLog& mLog;
    double mStalledClientLimit = 60.0;
    std::mutex mMutex;
    net::LineStream* mSocket = nullptr;  // guarded by mMutex, as is mSession
    SessionId mSession = kNoSession;
};

}  // namespace PluginRemoteCtrl
