#include "plugin/server.h"

#include <unistd.h>

#include "net/sockets.h"
#include "protocol/replies.h"

namespace PluginRemoteCtrl {

namespace {

constexpr int kListenBacklog = 5;
constexpr double kReplyTimeout = 1.0;
constexpr useconds_t kPollMicros = 100000;
constexpr int kListenRetryPolls = 10;  // one attempt a second
constexpr useconds_t kAcceptRetryMicros = 50000;

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

void CommandServer::serve(TCPSocket* client) {
    const SessionId id = ++mLastSession;
    if (admit(*client) && mSessions.channel.open(id, client)) {
        prepareConnection(*client);
        handleClient(id, *client, mSessions);
        mSessions.channel.close();  // before the delete: no reply can reach a deleted socket
    }
    delete client;
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

bool CommandServer::admit(TCPSocket& client) {
    const std::string address = client.getForeignAddress();
    if (isAllowed(mSettings.allowFrom, address)) return true;
    client.sendLine(protocol::kErrorAccessDenied, kReplyTimeout);
    const std::string line = mRefusals.refused(address, net::monotonicSeconds());
    if (!line.empty()) mLog("%s", line.c_str());
    return false;
}

}  // namespace PluginRemoteCtrl
