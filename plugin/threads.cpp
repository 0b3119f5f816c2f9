#include "plugin/threads.h"

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace PluginRemoteCtrl {

namespace {

class ThreadWrapper {
public:
    ThreadWrapper(void (*function)(void*), void* argument)
        : function(function), argument(argument) {}

    static void* func(void* record) {
        if (record == nullptr) return nullptr;
        auto* wrapper = static_cast<ThreadWrapper*>(record);
        wrapper->function(wrapper->argument);
        delete wrapper;
        return nullptr;
    }

    void (*function)(void*);
    void* argument;
};

struct TrackedStart {
    ThreadTracker* tracker;
    void (*function)(void*);
    void* argument;
};

pid_t currentThreadId() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

// The kernel drops a thread's /proc entry when the thread exits.
bool threadHasExited(pid_t tid) {
    const std::string path = "/proc/self/task/" + std::to_string(tid);
    return access(path.c_str(), F_OK) != 0;
}

// A new thread inherits the creator's signal mask, so the mask is set around pthread_create.
// SIGSEGV and its kind stay deliverable: blocking them would hide a crash.
sigset_t asynchronousSignals() {
    sigset_t signals;
    sigfillset(&signals);
    for (int synchronous : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
        sigdelset(&signals, synchronous);
    return signals;
}

}  // namespace

int createThread(void (*func)(void*), void* arg) {
    auto* record = new ThreadWrapper(func, arg);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    const sigset_t blocked = asynchronousSignals();
    sigset_t previous;
    pthread_sigmask(SIG_SETMASK, &blocked, &previous);
    pthread_t thread;
    const int rc = pthread_create(&thread, &attributes, &ThreadWrapper::func, record);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    pthread_attr_destroy(&attributes);
    if (rc != 0) {
        delete record;
        return -1;
    }
    return 0;
}

ThreadTracker::~ThreadTracker() {
    std::lock_guard<std::mutex> lock(mMutex);
}

bool ThreadTracker::start(void (*func)(void*), void* arg) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mRunning;
    }
    auto* record = new TrackedStart{this, func, arg};
    if (createThread(&ThreadTracker::trackedMain, record) == 0) return true;
    delete record;
    std::lock_guard<std::mutex> lock(mMutex);
    --mRunning;
    return false;
}

void ThreadTracker::trackedMain(void* record) {
    const TrackedStart start = *static_cast<TrackedStart*>(record);
    delete static_cast<TrackedStart*>(record);
    start.function(start.argument);
    start.tracker->finished(currentThreadId());
}

void ThreadTracker::finished(pid_t tid) {
    std::lock_guard<std::mutex> lock(mMutex);
    mLeaving.push_back(tid);
    --mRunning;
}

bool ThreadTracker::allGone() {
    std::lock_guard<std::mutex> lock(mMutex);
    mLeaving.erase(std::remove_if(mLeaving.begin(), mLeaving.end(), threadHasExited),
                   mLeaving.end());
    return mRunning == 0 && mLeaving.empty();
}

// RTLD_NODELETE on a module already loaded marks it never to be unmapped; the extra reference
// is dropped at once, the mark stays.
void pinModule() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&pinModule), &info) == 0 || info.dli_fname == nullptr)
        return;
    void* handle = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    if (handle != nullptr) dlclose(handle);
}

}  // namespace PluginRemoteCtrl
