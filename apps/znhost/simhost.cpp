#include "apps/znhost/simhost.h"

#include <cstdarg>
#include <cstdio>

#include "apps/znhost/lineout.h"

namespace znhost {

namespace {

constexpr const char* kTarget = "host";
constexpr const char* kDevControlName = "devcontrol";
constexpr int kKnownFilter = 1;

std::string withoutTrailingSlashes(std::string path) {
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path;
}

std::string formatMessage(const char* format, va_list args) {
    if (format == nullptr) return "";
    va_list copy;
    va_copy(copy, args);
    int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (length <= 0) return "";
    std::string message(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(message.data(), message.size(), format, args);
    message.resize(static_cast<size_t>(length));
    return message;
}

}  // namespace

SimHost::SimHost(const HostConfig& config, const std::string& settingsDir,
                 const std::string& dataDir, const Tracer& tracer)
    : mTracer(tracer),
      mConfigDir(withoutTrailingSlashes(settingsDir)),
      mDevControl(mDevices, tracer) {
    for (const DeviceConfig& device : config.devices)
        mDevices.push_back(std::make_unique<SimDevice>(device, dataDir, tracer));
    if (config.devControl.loaded) {
        void* privateInterface = config.devControl.privateInterface
                                     ? static_cast<zn::IDevControl*>(&mDevControl)
                                     : nullptr;
        mDevControlHandle =
            std::make_unique<SimPluginHandle>(kDevControlName, privateInterface, tracer);
    }
}

int SimHost::log(const char* source, int /*level*/, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string message = formatMessage(format, args);
    va_end(args);
    writeLogLine(source == nullptr ? "" : source, message);
    ++mLoggedLines;
    return 0;
}

int SimHost::listDevices(zn::IPtrList<zn::IDev*>* list) {
    mTracer.call(kTarget, "listDevices");
    for (const std::unique_ptr<SimDevice>& device : mDevices)
        list->add(device.get());
    return 0;
}

int SimHost::listDevicesFiltered(zn::IPtrList<zn::IDev*>* list, int filter) {
    mTracer.call(kTarget, "listDevicesFiltered", filter);
    if (filter != kKnownFilter) return 0;
    for (const std::unique_ptr<SimDevice>& device : mDevices)
        if (device->filtered()) list->add(device.get());
    return 0;
}

zn::IPluginHandle* SimHost::findPlugin(const char* name) {
    mTracer.call(kTarget, "findPlugin", Quoted{name});
    if (name == nullptr) return nullptr;
    std::string wanted = name;
    if (mDevControlHandle && wanted == mDevControlHandle->name()) return mDevControlHandle.get();
    for (const std::unique_ptr<SimPluginHandle>& handle : mPluginHandles)
        if (wanted == handle->name()) return handle.get();
    return nullptr;
}

const char* SimHost::configDir() {
    mTracer.call(kTarget, "configDir");
    return mConfigDir.c_str();
}

void SimHost::addPlugin(zn::IZnPlugin* plugin) {
    const char* name = plugin->name();
    mPluginHandles.push_back(
        std::make_unique<SimPluginHandle>(name == nullptr ? "" : name, plugin, mTracer));
}

bool SimHost::shutDownDevices(std::chrono::milliseconds bound) {
    bool allIdle = true;
    for (const std::unique_ptr<SimDevice>& device : mDevices)
        allIdle = device->shutDown(bound) && allIdle;
    return allIdle;
}

}  // namespace znhost
