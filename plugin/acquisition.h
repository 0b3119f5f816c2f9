// The acquisition of an accepted START: its owner, its start, its stop and its end.
//
// At most one runs at a time, on a detached acquisition thread that calls the device's
// runAcquisition and sends the START's only reply when it returns: "OK" for 0, otherwise
// "ERROR: ACQUISITION FAILED". The acquisition belongs to the session that started it, and its
// reply goes to that session only; when that session has ended, the reply goes to no one and the
// host log says "Acquisition on device N ended with REPLY after its client left".
//
// A STOP ends an acquisition that has not ended yet, however early it comes:
// - before the thread has called the device, the run is not started at all (the START is then
//   answered "ERROR: ACQUISITION FAILED");
// - when the device refuses the abort (a device may register its run a moment after the call
//   began, and drop an abort that comes before that), the abort is repeated on a thread of its
//   own every few milliseconds until the device takes it or the run returns.
// If the acquisition thread cannot be started the START is answered "ERROR: ACQUISITION FAILED"
// and the plug-in stays idle. The plug-in is idle again before the reply is sent, so a START sent
// the moment "OK" arrives is accepted.
//
// Threads: start() and stop() run on the server thread (stop() also on the host's thread while
// it closes the plug-in); every field is guarded by mMutex. Device calls under the lock are
// abortAcquisition only, which a device must accept while its run goes on elsewhere.
#pragma once

#include <mutex>
#include <string>

#include "host/interfaces.h"
#include "plugin/channel.h"
#include "plugin/hostlog.h"
#include "plugin/threads.h"

namespace PluginRemoteCtrl {

// What an accepted START hands to the acquisition.
struct AcquisitionRequest {
    zn::IDev* device = nullptr;
    int deviceIndex = 0;  // in the filtered list, for the host log
    int count = 0;
    double time = 0.0;
    std::string fileName;
};

class Acquisition {
public:
    Acquisition(ThreadTracker& threads, ClientChannel& channel, const HostLog& log)
        : mThreads(threads), mChannel(channel), mLog(log) {}

    bool running() const;
    bool ownedBy(SessionId session) const;
    // Starts the run for `owner`; false (and idle) when its thread could not be started.
    bool start(SessionId owner, AcquisitionRequest request);
    // Ends the running acquisition; does nothing when none runs.
    void stop();

private:
    static void acqThreadWrapper(void* self);
    struct AbortRetry {
        Acquisition* acquisition;
        unsigned long generation;
    };
    static void abortRetryWrapper(void* record);
    void acqFunction();
    void retryAbort(unsigned long generation);
    bool abortAgain(unsigned long generation);
    void reportEnd(SessionId owner, int deviceIndex, const char* reply);

    ThreadTracker& mThreads;
    ClientChannel& mChannel;
    const HostLog& mLog;

    mutable std::mutex mMutex;
    bool mRunning = false;
    SessionId mOwner = kNoSession;
    AcquisitionRequest mRequest;
    unsigned long mGeneration = 0;  // one per accepted START: an old retry never aborts a new run
    bool mStopRequested = false;
    bool mRunCalled = false;    // the device's runAcquisition has been called
    bool mRunReturned = false;  // ... and has returned
    bool mRetrying = false;     // an abort-retry thread runs for this generation
};

}  // namespace PluginRemoteCtrl
