// The plug-in's lines in the host's log: its name as source, level 0. Callable from any of our
// threads (the host accepts calls from them); attach() runs on the host's thread before any of
// ours exists.
#pragma once

#include "host/interfaces.h"

namespace PluginRemoteCtrl {

class HostLog {
public:
    explicit HostLog(const char* source) : mSource(source) {}
    void attach(zn::IZenthi* host) { mHost = host; }
    // printf-style; the text is formatted here, so the host receives it as one "%s" argument.
    void operator()(const char* format, ...) const __attribute__((format(printf, 2, 3)));

private:
    const char* mSource;
    zn::IZenthi* mHost = nullptr;
};

}  // namespace PluginRemoteCtrl
