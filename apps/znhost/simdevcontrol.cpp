#include "apps/znhost/simdevcontrol.h"

namespace znhost {

namespace {

constexpr const char* kTarget = "devcontrol";

}  // namespace

int SimDevControl::setFile(zn::IDev* device, const char* fileName, int flag) {
    mTracer.call(kTarget, "setFile", nameOf(device), Quoted{fileName}, flag);
    if (find(device) == nullptr) return -1;
    std::lock_guard<std::mutex> lock(mMutex);
    mFiles[device] = fileName == nullptr ? "" : fileName;
    return 0;
}

int SimDevControl::start(zn::IDev* device) {
    mTracer.call(kTarget, "start", nameOf(device));
    if (find(device) == nullptr) return -1;
    std::lock_guard<std::mutex> lock(mMutex);
    mRunning.insert(device);
    return 0;
}

int SimDevControl::stop(zn::IDev* device) {
    mTracer.call(kTarget, "stop", nameOf(device));
    if (find(device) == nullptr) return -1;
    std::lock_guard<std::mutex> lock(mMutex);
    mRunning.erase(device);
    return 0;
}

bool SimDevControl::isRunning(zn::IDev* device) {
    mTracer.call(kTarget, "isRunning", nameOf(device));
    std::lock_guard<std::mutex> lock(mMutex);
    return mRunning.count(device) != 0;
}

std::string SimDevControl::fileOf(const zn::IDev* device) const {
    std::lock_guard<std::mutex> lock(mMutex);
    auto found = mFiles.find(device);
    return found == mFiles.end() ? "" : found->second;
}

const SimDevice* SimDevControl::find(const zn::IDev* device) const {
    for (const std::unique_ptr<SimDevice>& candidate : mDevices)
        if (static_cast<const zn::IDev*>(candidate.get()) == device) return candidate.get();
    return nullptr;
}

std::string SimDevControl::nameOf(const zn::IDev* device) const {
    const SimDevice* known = find(device);
    return known == nullptr ? "?" : known->name();
}

void* SimPluginHandle::privateInterface() {
    mTracer.call(mName, "privateInterface");
    return mPlugin != nullptr ? mPlugin->privateInterface() : mInterface;
}

}  // namespace znhost
