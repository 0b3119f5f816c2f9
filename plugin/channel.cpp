#include "plugin/channel.h"

#include "net/results.h"
#include "net/stream.h"

namespace PluginRemoteCtrl {

namespace {

// Short enough that a stop request ends a waiting reply at once.
constexpr double kReplySliceSeconds = 0.05;

}  // namespace

bool ClientChannel::open(SessionId id, net::LineStream* socket) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mStopRequested) return false;
    mSocket = socket;
    mSession = id;
    return true;
}

void ClientChannel::close() {
    std::lock_guard<std::mutex> lock(mMutex);
    mSocket = nullptr;
    mSession = kNoSession;
}

bool ClientChannel::send(SessionId id, const std::string& line) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mSocket == nullptr || id != mSession) return false;
    sendLocked(line);
    return true;
}

void ClientChannel::shutdown() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mSocket != nullptr) mSocket->shutdownBoth();
}

// A failed send means the client went; its session sees that on its next read.
void ClientChannel::sendLocked(const std::string& line) {
    const std::string wire = line + "\n";
    const int total = static_cast<int>(wire.size());
    int sent = 0;
    double lastProgressAt = net::monotonicSeconds();
    while (sent < total && !mStopRequested) {
        const int rc = mSocket->sendWithin(wire.data() + sent, total - sent, kReplySliceSeconds);
        if (rc < 0) return;
        if (rc > 0) lastProgressAt = net::monotonicSeconds();
        sent += rc;
        if (sent < total && net::monotonicSeconds() - lastProgressAt >= mStalledClientLimit) {
            mLog("Disconnected client %s: it read no reply for %g s",
                 mSocket->getForeignAddress().c_str(), mStalledClientLimit);
            mSocket->shutdownBoth();
            return;
        }
    }
}

}  // namespace PluginRemoteCtrl
