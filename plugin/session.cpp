#include "plugin/session.h"

#include <string>

#include "net/results.h"
#include "net/stream.h"
#include "protocol/command_language.h"
#include "protocol/replies.h"

namespace PluginRemoteCtrl {

namespace {

constexpr double kLineTimeout = 1.0;  // also how often a waiting session sees a stop request
constexpr size_t kMaxLineLength = 65536;

bool isIdleTooLong(SessionId id, double lastLineAt, const SessionContext& context) {
    if (context.settings.idleTimeout <= 0.0) return false;
    if (context.acquisition.ownedBy(id)) return false;
    return net::monotonicSeconds() - lastLineAt >= context.settings.idleTimeout;
}

}  // namespace

void prepareConnection(net::LineStream& client) {
    client.setMaxLineLength(kMaxLineLength);
    client.setKeepPartialLines(true);
    client.setNoDelay();
}

void handleClient(SessionId id, net::LineStream& client, const SessionContext& context) {
    double lastLineAt = net::monotonicSeconds();
    std::string line;
    for (;;) {
        const int rc = client.getLine(line, kLineTimeout);
        if (context.stopRequested) return;
        if (rc == net::kTimedOut) {
            if (isIdleTooLong(id, lastLineAt, context)) return;
            continue;
        }
        lastLineAt = net::monotonicSeconds();
        if (rc == net::kLineTooLong) {
            context.channel.send(id, protocol::kErrorCommandTooLong);
            continue;
        }
        if (rc != 0) return;  // a connection error: the line it cut off is not run
        // A closed peer yields its unterminated rest once, then an empty line.
        const std::string_view trimmed = protocol::trimLineEnd(line);
        if (protocol::endsSession(trimmed)) return;
        // The replies to lines that came together go out together: with a command and the sync
        // line in one write, both replies leave in one segment, so the client waits for one
        // round trip rather than two.
        const bool moreLinesWaiting = client.hasBufferedLine();
        if (moreLinesWaiting) client.setCork(true);
        context.commands.processCommandString(id, trimmed);
        if (!moreLinesWaiting) client.setCork(false);
    }
}

}  // namespace PluginRemoteCtrl
