// The simulated "devcontrol" plug-in: its private interface and the host's handle of it.
//
// start(dev) makes isRunning(dev) true until stop(dev); setFile records the name per device.
// Results: 0 for one of the host's devices, -1 (and isRunning false) for any other pointer,
// which is traced as "?" since it cannot be looked at safely. A handle built without a private
// interface returns null from privateInterface(), as the DevControl key PrivateInterface=false
// asks.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "apps/znhost/simdevice.h"
#include "apps/znhost/trace.h"
#include "host/interfaces.h"

namespace znhost {

class SimDevControl : public zn::IDevControl {
public:
    SimDevControl(const std::vector<std::unique_ptr<SimDevice>>& devices, const Tracer& tracer)
        : mDevices(devices), mTracer(tracer) {}
    virtual ~SimDevControl() = default;

    int setFile(zn::IDev* device, const char* fileName, int flag) override;
    int start(zn::IDev* device) override;
    int stop(zn::IDev* device) override;
    bool isRunning(zn::IDev* device) override;

    // The last name handed to setFile for the device, empty when none.
    std::string fileOf(const zn::IDev* device) const;

private:
    const SimDevice* find(const zn::IDev* device) const;
    std::string nameOf(const zn::IDev* device) const;

    const std::vector<std::unique_ptr<SimDevice>>& mDevices;
    const Tracer& mTracer;
    mutable std::mutex mMutex;
    std::set<const zn::IDev*> mRunning;
    std::map<const zn::IDev*, std::string> mFiles;
};

// The host's handle of a plug-in, by name: either a fixed interface (the simulated devcontrol,
// where null stands for a plug-in that offers none) or a loaded plug-in, asked at every call.
class SimPluginHandle : public zn::IPluginHandle {
public:
    SimPluginHandle(std::string name, void* privateInterface, const Tracer& tracer)
        : mName(std::move(name)), mInterface(privateInterface), mTracer(tracer) {}
    SimPluginHandle(std::string name, zn::IZnPlugin* plugin, const Tracer& tracer)
        : mName(std::move(name)), mPlugin(plugin), mTracer(tracer) {}
    virtual ~SimPluginHandle() = default;

    void* privateInterface() override;
    const std::string& name() const { return mName; }

private:
    const std::string mName;
    void* const mInterface = nullptr;
    zn::IZnPlugin* const mPlugin = nullptr;
    const Tracer& mTracer;
};

}  // namespace znhost
