#include "bench/bench_host.h"

#include <dlfcn.h>

#include <cstring>
#include <filesystem>

namespace bench {

namespace {

class NullDevice : public zn::IDev {
public:
    virtual ~NullDevice() = default;
    int runAcquisition(int, double, int, const char*) override { return 0; }
    int abortAcquisition() override { return 0; }
    int setThreshold(int, int, double) override { return 0; }
    int thresholdRange(int, int, double* minValue, double* maxValue) override {
        *minValue = 0.0;
        *maxValue = 100.0;
        return 0;
    }
};

class NullDevControl : public zn::IDevControl {
public:
    virtual ~NullDevControl() = default;
    int setFile(zn::IDev*, const char*, int) override { return 0; }
    int start(zn::IDev*) override { return 0; }
    int stop(zn::IDev*) override { return 0; }
    bool isRunning(zn::IDev*) override { return false; }
};

class DevControlHandle : public zn::IPluginHandle {
public:
    explicit DevControlHandle(zn::IDevControl* control) : mControl(control) {}
    virtual ~DevControlHandle() = default;
    void* privateInterface() override { return mControl; }

private:
    zn::IDevControl* mControl;
};

}  // namespace

struct BenchHost::Parts {
    NullDevice devices[kDevices];
    NullDevControl devControl;
    DevControlHandle devControlHandle{&devControl};
};

BenchHost::BenchHost(std::string settingsDir)
    : mSettingsDir(std::move(settingsDir)), mParts(std::make_unique<Parts>()) {}

BenchHost::~BenchHost() = default;

int BenchHost::log(const char*, int, const char*, ...) {
    return 0;
}

int BenchHost::listDevices(zn::IPtrList<zn::IDev*>* list) {
    for (NullDevice& device : mParts->devices)
        list->add(&device);
    return 0;
}

int BenchHost::listDevicesFiltered(zn::IPtrList<zn::IDev*>* list, int) {
    return listDevices(list);
}

zn::IPluginHandle* BenchHost::findPlugin(const char* name) {
    const bool isDevControl = name != nullptr && std::strcmp(name, "devcontrol") == 0;
    return isDevControl ? &mParts->devControlHandle : nullptr;
}

const char* BenchHost::configDir() {
    return mSettingsDir.c_str();
}

zn::IZnPlugin* loadPlugin(const std::string& modulePath, zn::IZenthi& host, void*& module,
                          std::string& error) {
    module = dlopen(modulePath.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* entry = module != nullptr ? dlsym(module, zn::kGetPluginSymbol) : nullptr;
    if (entry == nullptr) {
        error = "cannot load " + modulePath;
        if (module != nullptr) dlclose(module);
        module = nullptr;
        return nullptr;
    }
    zn::IZnPlugin* plugin = reinterpret_cast<zn::GetPluginFunction>(entry)();
    plugin->initialize(&host);
    return plugin;
}

std::string programDir() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string(".") : program.parent_path().string();
}

std::string defaultModulePath() {
    return programDir() + "/../lib/remotectrl.so";
}

}  // namespace bench
