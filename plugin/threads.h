// The plug-in's threads: how they start, how the plug-in knows they have left its code, and how
// the module stays mapped while one of them still runs.
//
// Every thread of ours blocks the asynchronous signals, so the host's signal handlers run on the
// host's own threads and no wait of ours ends early with EINTR.
//
// A thread has finished with the plug-in when it has returned from its function, and has left the
// module's code only once the kernel has dropped it; a host may unload the module as soon as
// onClose returns, so onClose waits (within its bound) for the second. When the bound runs out
// first, pinModule() keeps the module mapped until the process ends: the host's unload then never
// frees code that runs.
#pragma once

#include <sys/types.h>

#include <mutex>
#include <vector>

namespace PluginRemoteCtrl {

// Runs func(arg) on a new detached thread. Returns 0, or -1 when the thread could not be created
// (the start record is then released and func never runs).
int createThread(void (*func)(void*), void* arg);

// Counts the threads started through it until each has left the module's code.
class ThreadTracker {
public:
    ThreadTracker() = default;
    // Takes the lock once, so that the last thread's count is ordered before the tracker goes.
    ~ThreadTracker();
    ThreadTracker(const ThreadTracker&) = delete;
    ThreadTracker& operator=(const ThreadTracker&) = delete;

    // createThread through the tracker; false when the thread could not be created.
    bool start(void (*func)(void*), void* arg);
    // True when every thread started here has returned and the kernel has dropped it.
    bool allGone();

private:
    static void trackedMain(void* record);
    void finished(pid_t tid);

    std::mutex mMutex;
    int mRunning = 0;             // started, not yet returned from their function
    std::vector<pid_t> mLeaving;  // returned, perhaps still in the module's code
};

// Makes the module that holds this code stay mapped whatever the host unloads.
void pinModule();

}  // namespace PluginRemoteCtrl
