#include "plugin/acquisition.h"

#include <unistd.h>

#include <algorithm>

#include "protocol/replies.h"

namespace PluginRemoteCtrl {

namespace {

constexpr int kNotStarted = -1;  // the result of a run that a STOP kept from starting
// The first retries come quickly, since a device registers its run within moments; later ones
// slow down for a device that takes its time.
constexpr useconds_t kFirstRetryMicros = 1000;
constexpr useconds_t kLongestRetryMicros = 50000;

}  // namespace

bool Acquisition::running() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRunning;
}

bool Acquisition::ownedBy(SessionId session) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRunning && mOwner == session;
}

bool Acquisition::start(SessionId owner, AcquisitionRequest request) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mRunning = true;
        mOwner = owner;
        mRequest = std::move(request);
        ++mGeneration;
        mStopRequested = mRunCalled = mRunReturned = mRetrying = false;
    }
    if (mThreads.start(&Acquisition::acqThreadWrapper, this)) return true;
    std::lock_guard<std::mutex> lock(mMutex);
    mRunning = false;
    return false;
}

void Acquisition::stop() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!mRunning || mRunReturned) return;
    mStopRequested = true;
    if (!mRunCalled) return;  // the acquisition thread sees the request and does not start
    if (mRequest.device->abortAcquisition() == 0 || mRetrying) return;
    // The generation travels with the thread: read later, it could already be the next run's.
    auto* retry = new AbortRetry{this, mGeneration};
    mRetrying = mThreads.start(&Acquisition::abortRetryWrapper, retry);
    if (!mRetrying) delete retry;
}

void Acquisition::acqThreadWrapper(void* self) {
    static_cast<Acquisition*>(self)->acqFunction();
}

void Acquisition::acqFunction() {
    AcquisitionRequest request;
    bool stopped = false;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        request = mRequest;
        stopped = mStopRequested;
        mRunCalled = !stopped;
    }
    const int result =
        stopped ? kNotStarted
                : request.device->runAcquisition(request.count, request.time, zn::kAcquisitionFlag,
                                                 request.fileName.c_str());
    SessionId owner = kNoSession;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mRunReturned = true;
        mRunning = false;
        owner = mOwner;
    }
    reportEnd(owner, request.deviceIndex,
              result == 0 ? protocol::kReplyOk : protocol::kErrorAcquisitionFailed);
}

void Acquisition::reportEnd(SessionId owner, int deviceIndex, const char* reply) {
    if (!mChannel.send(owner, reply))
        mLog("Acquisition on device %d ended with %s after its client left", deviceIndex, reply);
}

void Acquisition::abortRetryWrapper(void* record) {
    const AbortRetry retry = *static_cast<AbortRetry*>(record);
    delete static_cast<AbortRetry*>(record);
    retry.acquisition->retryAbort(retry.generation);
}

void Acquisition::retryAbort(unsigned long generation) {
    useconds_t pause = kFirstRetryMicros;
    do {
        usleep(pause);
        pause = std::min(pause * 2, kLongestRetryMicros);
    } while (abortAgain(generation));
}

// One more abort of the run of `generation`; false when no more is needed.
bool Acquisition::abortAgain(unsigned long generation) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (generation != mGeneration || mRunReturned) return false;
    if (mRequest.device->abortAcquisition() != 0) return true;
    mRetrying = false;
    return false;
}

}  // namespace PluginRemoteCtrl
