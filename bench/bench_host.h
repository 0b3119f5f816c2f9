// A host that does as little as a host can: the benchmarks load the plug-in module into it to
// see the plug-in's own cost apart from znhost's simulation. It has kDevices devices (every one
// also in the filtered list) whose acquisitions end at once with 0, and a "devcontrol" plug-in
// whose operations succeed and do nothing (isRunning is always false). Nothing is logged.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/interfaces.h"

namespace bench {

class BenchHost : public zn::IZenthi {
public:
    static constexpr int kDevices = 2;

    explicit BenchHost(std::string settingsDir);
    virtual ~BenchHost();

    int log(const char* source, int level, const char* format, ...) override;
    int listDevices(zn::IPtrList<zn::IDev*>* list) override;
    int listDevicesFiltered(zn::IPtrList<zn::IDev*>* list, int filter) override;
    zn::IPluginHandle* findPlugin(const char* name) override;
    const char* configDir() override;

private:
    struct Parts;
    std::string mSettingsDir;
    std::unique_ptr<Parts> mParts;
};

// The module at `modulePath`, loaded and initialized with `host`; null (and `error` set) when it
// cannot be loaded. The caller calls onClose and then dlclose(module).
zn::IZnPlugin* loadPlugin(const std::string& modulePath, zn::IZenthi& host, void*& module,
                          std::string& error);

// The directory that holds the running program, without a trailing '/'.
std::string programDir();

// Where bench/run's build puts the module, seen from the benchmark programs.
std::string defaultModulePath();

}  // namespace bench
