// One accepted connection, plain or TLS (the session does not know which), read line by line on
// the server thread until the client ends it.
//
// A line runs at most once. It ends at a line feed; trailing blanks, carriage returns and line
// feeds are trimmed; an empty line or exactly "QUIT()" ends the session without a reply. Text that
// arrives before a read time-out is kept, so a slow line is carried out whole; a line cut off by a
// connection error (a reset) is dropped, not run, while a line ended by the peer's orderly close
// runs once before the session ends. A line longer than 65,536 bytes is answered
// "ERROR: COMMAND TOO LONG" once and dropped up to its line feed; the session goes on.
//
// The session ends on a stop request (seen within a second), and after IdleTimeout seconds without
// a line unless an acquisition it started is running. Every accepted connection has TCP_NODELAY:
// replies are single short lines that a client waits for, which Nagle's algorithm would hold back
// for the peer's delayed acknowledgement; the replies to lines that arrived together leave
// together.
#pragma once

#include <atomic>

#include "plugin/acquisition.h"
#include "plugin/channel.h"
#include "plugin/commands.h"
#include "plugin/settings.h"

namespace net {
class LineStream;
}

namespace PluginRemoteCtrl {

// What every session shares; owned by the plug-in object.
struct SessionContext {
    const std::atomic<bool>& stopRequested;
    ClientChannel& channel;
    Commands& commands;
    Acquisition& acquisition;
    const PluginSettings& settings;  // IdleTimeout: seconds without a line, 0 for never
};

// Readies `client` for a session: the line bound, kept partial lines, TCP_NODELAY.
void prepareConnection(net::LineStream& client);

// Serves session `id` on `client` until it ends. The caller has published the connection in the
// channel and lets it go afterwards.
void handleClient(SessionId id, net::LineStream& client, const SessionContext& context);

}  // namespace PluginRemoteCtrl
