#include "plugin/server.h"

#include <unistd.h>

#include <algorithm>

#include "net/sockets.h"
#include "net/tls_stream.h"
#include "protocol/replies.h"

namespace PluginRemoteCtrl {

namespace {

constexpr int kListenBacklog = 5;
constexpr double kReplyTimeout = 1.0;
constexpr useconds_t kPollMicros = 100000;
constexpr int kListenRetryPolls = 10;  // one attempt a second
constexpr useconds_t kAcceptRetryMicros = 50000;
constexpr int kHandshakeSeconds = 5;
constexpr double kHandshakeStepSeconds = 0.1;  // how soon a handshake sees a stop request

// 0 when the handshake succeeded within its bound; kTimedOut also when a stop was requested.
int handshakeInTime(net::TlsStream& stream, const std::atomic<bool>& stopRequested) {
    const double deadline = net::monotonicSeconds() + kHandshakeSeconds;
    int rc = net::kTimedOut;
    for (double left = kHandshakeSeconds; rc == net::kTimedOut && left > 0.0 && !stopRequested;
         left = deadline - net::monotonicSeconds())
        rc = stream.handshake(std::min(left, kHandshakeStepSeconds));
    return rc;
}

}  // namespace

CommandServer::CommandServer(const PluginSettings& settings, const SessionContext& sessions,
                             const HostLog& log)
    : mSettings(settings), mSessions(sessions), mLog(log), mServer(new TCPServerSocket()) {}

CommandServer::~CommandServer() {
    delete mServer;
}

void CommandServer::wake() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mServer) mServer->shutdownBoth();
}

void CommandServer::release() {
    std::lock_guard<std::mutex> lock(mMutex);
    delete mServer;
    mServer = nullptr;
}

// After wake() the socket stays valid until release(), which comes only once this thread has
// finished or the stop's bound ran out; in the second case this thread sees the stop request
// before it would touch the socket again.
void CommandServer::serverFunction() {
    if (!listenUntilStopped()) return;
    while (!mSessions.stopRequested) {
        TCPSocket* client = mServer->accept();
        if (client == nullptr) {
            if (!mSessions.stopRequested) usleep(kAcceptRetryMicros);  // e.g. out of descriptors
            continue;
        }
        serve(client);
    }
}

void CommandServer::serve(TCPSocket* accepted) {
    std::unique_ptr<TCPSocket> client(accepted);
    const SessionId id = ++mLastSession;
    if (!admit(*client)) return;
    const std::unique_ptr<net::LineStream> stream = secure(std::move(client));
    if (stream == nullptr || !mSessions.channel.open(id, stream.get())) return;
    prepareConnection(*stream);
    handleClient(id, *stream, mSessions);
    mSessions.channel.close();  // before the stream goes: no reply can reach a deleted connection
}

// The handshake failures of an address share the refusals' bound; only whether a line may go out
// is taken from it.
std::unique_ptr<net::LineStream> CommandServer::secure(std::unique_ptr<TCPSocket> client) {
    if (!mSettings.tls) return std::make_unique<net::PlainStream>(std::move(client));
    const std::string address = client->getForeignAddress();
    auto stream = std::make_unique<net::TlsStream>(*mSettings.tls, std::move(client));
    const int rc = handshakeInTime(*stream, mSessions.stopRequested);
    if (rc == 0) return stream;
    if (mSessions.stopRequested) return nullptr;
    const std::string reason =
        rc == net::kTimedOut ? "no handshake within " + std::to_string(kHandshakeSeconds) + " s"
                             : stream->lastError();
    if (!mHandshakeFailures.refused(address, net::monotonicSeconds()).empty())
        mLog("TLS handshake with %s failed: %s", address.c_str(), reason.c_str());
    return nullptr;
}

// A failed socket cannot simply bind again (listen() gave it a port of the system's choice), so
// each attempt gets a fresh one.
bool CommandServer::listenUntilStopped() {
    const unsigned short port = static_cast<unsigned short>(mSettings.port);
    for (bool logged = false; !mSessions.stopRequested; logged = true) {
        std::string reason;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (mServer == nullptr) return false;
            mServer->setReuseAddress();
            const int started = mSettings.address.empty()
                                    ? mServer->startServer(port, kListenBacklog)
                                    : mServer->startServer(mSettings.address, port, kListenBacklog);
            if (started == 0) return true;
            reason = mServer->lastError();
            delete mServer;
            mServer = new TCPServerSocket();
        }
        if (!logged)
            mLog("Could not start the remote server at port %d: %s", mSettings.port,
                 reason.c_str());
        for (int poll = 0; poll < kListenRetryPolls && !mSessions.stopRequested; ++poll)
            usleep(kPollMicros);
    }
    return false;
}

// A TLS client would take the plain refusal for a broken handshake; it only sees the close.
bool CommandServer::admit(TCPSocket& client) {
    const std::string address = client.getForeignAddress();
    if (isAllowed(mSettings.allowFrom, address)) return true;
    if (!mSettings.tls) client.sendLine(protocol::kErrorAccessDenied, kReplyTimeout);
    const std::string line = mRefusals.refused(address, net::monotonicSeconds());
    if (!line.empty()) mLog("%s", line.c_str());
    return false;
}

}  // namespace PluginRemoteCtrl
