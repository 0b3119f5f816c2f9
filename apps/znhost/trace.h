// The --trace output: one line per call that a plug-in makes on the host's interfaces.
//
// A line reads "trace: TARGET.OPERATION(ARG, ARG, ...)" and is written with one write() so that
// lines from concurrent plug-in threads stay whole. Arguments appear as the plug-in passed them:
// integers in decimal, doubles in the shortest text that reads back to the same value (the
// std::to_chars form, so 10.0 is "10" and infinities are "inf"), strings in double quotes with
// '"' and '\' escaped by a backslash and bytes below 0x20 or from 0x7f up as \xNN with two
// lower-case hex digits. A null string pointer is written as null, without quotes.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace znhost {

std::string traceQuoted(const char* text);
std::string traceNumber(double value);
std::string traceNumber(int value);

// "TARGET.OPERATION(ARG, ARG)", without the "trace: " prefix.
std::string formatTraceCall(std::string_view target, std::string_view operation,
                            std::initializer_list<std::string_view> args);

// A string argument shown in quotes (file and plug-in names); other texts (device names) are
// shown as they are.
struct Quoted {
    const char* text;
};

inline std::string traceArgument(int value) {
    return traceNumber(value);
}
inline std::string traceArgument(double value) {
    return traceNumber(value);
}
inline std::string traceArgument(Quoted value) {
    return traceQuoted(value.text);
}
inline std::string_view traceArgument(std::string_view text) {
    return text;
}

class Tracer {
public:
    // A disabled tracer writes nothing; `fd` is where enabled lines go (standard error in znhost).
    Tracer(bool enabled, int fd) : mEnabled(enabled), mFd(fd) {}

    bool enabled() const { return mEnabled; }

    // Takes the arguments as the plug-in passed them and formats them only when tracing is on:
    // every call of every command passes through here.
    template <typename... Args>
    void call(std::string_view target, std::string_view operation, const Args&... args) const {
        if (mEnabled) write(target, operation, {std::string_view(traceArgument(args))...});
    }

private:
    void write(std::string_view target, std::string_view operation,
               std::initializer_list<std::string_view> args) const;

    bool mEnabled;
    int mFd;
};

}  // namespace znhost
