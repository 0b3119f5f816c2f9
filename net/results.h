// The socket layer's result codes (what each means for each operation is told in sockets.h) and
// the clock its time-outs are measured on.
#pragma once

namespace net {

constexpr int kTimedOut = -10;
constexpr int kIoFailed = -11;
constexpr int kConnectOrWaitFailed = -12;
constexpr int kTransferWaitFailed = -13;
constexpr int kLineTooLong = -14;

// The code in words: "timed out", ..., "completed" for n >= 0, "failed" for other negatives.
const char* resultName(int code);

// Seconds on CLOCK_MONOTONIC; only differences mean anything.
double monotonicSeconds();

}  // namespace net
