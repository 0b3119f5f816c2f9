#include "apps/znhost/lineout.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "apps/znhost/writeall.h"

namespace znhost {

namespace {

std::string logLine(std::string_view source, std::string_view message) {
    std::string line;
    line.reserve(source.size() + message.size() + 3);
    line.append("[").append(source).append("] ").append(message);
    return line;
}

// Threads: any thread pushes; the writer thread alone writes to the descriptors. mMutex guards
// the queue, the drop count and mBusy (a line taken out of the queue but not yet written).
class LineQueue {
public:
    explicit LineQueue(size_t capacity) : mCapacity(capacity) {
        std::thread(&LineQueue::run, this).detach();
    }

    void push(int fd, std::string line) {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mLines.size() >= mCapacity) {
            ++mDropped;
            return;
        }
        mLines.push_back({fd, std::move(line)});
        mChanged.notify_all();
    }

    bool flush(std::chrono::milliseconds bound) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, bound, [this] { return mLines.empty() && !mBusy; });
    }

private:
    struct Line {
        int fd;
        std::string text;
    };

    void run() {
        sigset_t pipeSignal;
        sigemptyset(&pipeSignal);
        sigaddset(&pipeSignal, SIGPIPE);
        // A write to a pipe without reader raises SIGPIPE in the writing thread: blocked here, it
        // stays pending on this thread and write() reports EPIPE instead.
        pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
        std::unique_lock<std::mutex> lock(mMutex);
        for (;;) {
            mBusy = false;
            mChanged.notify_all();
            mChanged.wait(lock, [this] { return !mLines.empty(); });
            Line line = std::move(mLines.front());
            mLines.pop_front();
            unsigned long dropped = mDropped;
            mDropped = 0;
            mBusy = true;
            lock.unlock();
            writeAll(line.fd, line.text);
            if (dropped > 0)
                writeAll(STDERR_FILENO, logLine(kHostLogSource, std::to_string(dropped) +
                                                                    " output lines dropped\n"));
            lock.lock();
        }
    }

    const size_t mCapacity;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::deque<Line> mLines;
    unsigned long mDropped = 0;
    bool mBusy = false;
};

// Never deleted: plug-in threads may still log while the process exits.
std::atomic<LineQueue*> gQueue{nullptr};

}  // namespace

void writeLine(int fd, std::string_view text) {
    std::string line;
    line.reserve(text.size() + 1);
    line.append(text).push_back('\n');
    LineQueue* queue = gQueue.load();
    if (queue != nullptr)
        queue->push(fd, std::move(line));
    else
        writeAll(fd, line);
}

void writeLogLine(std::string_view source, std::string_view message) {
    writeLine(STDERR_FILENO, logLine(source, message));
}

void startOutputThread(size_t capacity) {
    static std::once_flag started;
    std::call_once(started, [capacity] { gQueue = new LineQueue(capacity); });
}

bool flushOutput(std::chrono::milliseconds bound) {
    LineQueue* queue = gQueue.load();
    return queue == nullptr || queue->flush(bound);
}

}  // namespace znhost
