#include "bench/round_trip.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "bench/loopback.h"
#include "bench/stats.h"

namespace bench {

namespace {

constexpr double kIoTimeout = 5.0;      // any single send or receive
constexpr double kStartTimeout = 10.0;  // the first accept after the host said it is ready
constexpr useconds_t kConnectRetryMicroseconds = 10000;

bool readReplies(LineReader& reader, int lines, std::string& replies) {
    replies.clear();
    std::string line;
    for (int i = 0; i < lines; ++i) {
        if (!reader.readLine(line)) return false;
        replies += (i == 0 ? "" : "\n") + line;
    }
    return true;
}

}  // namespace

int connectWhenListening(int port) {
    const double deadline = monotonicSeconds() + kStartTimeout;
    for (;;) {
        const int fd = connectLoopback(port, kIoTimeout);
        if (fd >= 0 || monotonicSeconds() >= deadline) return fd;
        usleep(kConnectRetryMicroseconds);
    }
}

Run exchange(int port, const Exchange& plan) {
    const int fd = connectWhenListening(port);
    if (fd < 0) return Run::failed("cannot connect: " + std::string(std::strerror(errno)));
    Run run;
    LineReader reader(fd);
    const size_t length = std::strlen(plan.request);
    std::string replies;
    run.latencies.reserve(static_cast<size_t>(plan.measured));
    double measuredStart = monotonicSeconds();
    for (int i = 0; i < plan.warmUp + plan.measured && run.failure.empty(); ++i) {
        if (i == plan.warmUp) measuredStart = monotonicSeconds();
        const double sent = monotonicSeconds();
        if (!sendAll(fd, plan.request, length) || !readReplies(reader, plan.replyLines, replies)) {
            run.failure = "no reply (time-out or closed)";
        } else if (!plan.expected(replies)) {
            run.failure = "unexpected reply \"" + replies + "\"";
        } else if (i >= plan.warmUp) {
            const double received = monotonicSeconds();
            run.latencies.push_back(received - sent);
            if (received - measuredStart > plan.budgetSeconds) break;
        }
    }
    if (run.failure.empty())
        run.perSecond =
            static_cast<double>(run.latencies.size()) / (monotonicSeconds() - measuredStart);
    close(fd);
    return run;
}

}  // namespace bench
