#include "plugin/hostlog.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace PluginRemoteCtrl {

void HostLog::operator()(const char* format, ...) const {
    if (mHost == nullptr) return;
    va_list args;
    va_start(args, format);
    va_list measure;
    va_copy(measure, args);
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::vector<char> text(length > 0 ? static_cast<size_t>(length) + 1 : 1, '\0');
    if (length > 0) std::vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    mHost->log(mSource, 0, "%s", text.data());
}

}  // namespace PluginRemoteCtrl
