// Request and reply over one loopback connection, timed from the write to the last reply line:
// the measuring loop that every round-trip benchmark shares, and what one such run yields.
#pragma once

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "bench/table.h"

namespace bench {

// What one measured run yields: either figures or the reason there are none.
struct Run {
    static Run failed(std::string why) {
        Run run;
        run.failure = std::move(why);
        return run;
    }

    std::string failure;
    double perSecond = kNoFigure;
    std::vector<double> latencies;  // seconds
};

struct Exchange {
    const char* request;  // sent in one write, every line ended
    int replyLines;       // read per exchange, joined with "\n" for `expected`
    std::function<bool(const std::string&)> expected;
    int warmUp;
    int measured;
    // The run stops early, with what it has, once its measured part has taken this long.
    double budgetSeconds = std::numeric_limits<double>::infinity();
};

// A server that starts listening on a thread of its own after it said it is ready (the plug-in
// in its host) refuses at first: connect until it accepts or a start time-out passes. -1 then.
int connectWhenListening(int port);

// One connection, `warmUp` + `measured` exchanges, one latency per measured exchange.
Run exchange(int port, const Exchange& plan);

}  // namespace bench
