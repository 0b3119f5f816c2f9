// The simulated host core handed to every plug-in's initialize().
//
// log() writes "[SOURCE] MESSAGE" to standard error (the level is not shown). listDevices()
// appends every device in config order; listDevicesFiltered(list, 1) appends the Filtered ones in
// the same order, and any other filter value appends none. findPlugin() knows "devcontrol" (unless
// the config unloads it) and every plug-in registered with addPlugin(), the simulated devcontrol
// taking precedence. loggedLines() counts the log() calls so far: znhost stops waiting for a
// plug-in to listen once it has logged something, since a plug-in only logs while starting when it
// cannot serve. configDir() is the settings folder with trailing slashes removed ("/" gives
// the empty text, so that appending "/" and a name still works). All results are 0.
// Registration happens before any plug-in runs; afterwards the object is only read, so calls from
// any thread are safe.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "apps/znhost/config.h"
#include "apps/znhost/simdevcontrol.h"
#include "apps/znhost/simdevice.h"
#include "apps/znhost/trace.h"
#include "host/interfaces.h"

namespace znhost {

class SimHost : public zn::IZenthi {
public:
    SimHost(const HostConfig& config, const std::string& settingsDir, const std::string& dataDir,
            const Tracer& tracer);
    virtual ~SimHost() = default;

    int log(const char* source, int level, const char* format, ...) override
        __attribute__((format(printf, 4, 5)));
    int listDevices(zn::IPtrList<zn::IDev*>* list) override;
    int listDevicesFiltered(zn::IPtrList<zn::IDev*>* list, int filter) override;
    zn::IPluginHandle* findPlugin(const char* name) override;
    const char* configDir() override;

    // Makes a loaded plug-in visible to findPlugin(); call before any plug-in is initialised.
    void addPlugin(zn::IZnPlugin* plugin);

    // Ends running acquisitions and waits at most `bound` per device. True when all are idle.
    bool shutDownDevices(std::chrono::milliseconds bound);

    unsigned loggedLines() const { return mLoggedLines.load(); }
    const std::vector<std::unique_ptr<SimDevice>>& devices() const { return mDevices; }
    const SimDevControl& devControl() const { return mDevControl; }

private:
    const Tracer& mTracer;
    const std::string mConfigDir;
    std::vector<std::unique_ptr<SimDevice>> mDevices;
    SimDevControl mDevControl;
    std::unique_ptr<SimPluginHandle> mDevControlHandle;
    std::vector<std::unique_ptr<SimPluginHandle>> mPluginHandles;
    std::atomic<unsigned> mLoggedLines{0};
};

}  // namespace znhost
