// Bounds for every wait in the tests. They are generous on purpose: sanitizer builds on a shared
// two-core machine are slow, and a test bounds a wait, it never measures speed.
#pragma once

#include <chrono>

namespace testsupport {

using std::chrono::milliseconds;

constexpr milliseconds kStartBound{20000};
constexpr milliseconds kReplyBound{10000};
constexpr milliseconds kExitBound{15000};
// For the socket layer's own time-outs, in its unit (seconds): a wait that should end at once,
// and one that is expected to run out.
constexpr double kWaitSeconds = 3.0;
constexpr double kShortWaitSeconds = 0.2;

}  // namespace testsupport
