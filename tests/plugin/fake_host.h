// A small hand-written host for the plug-in tests: devices whose acquisitions may block until
// released or aborted, a devcontrol plug-in that records what it is asked, and a readable log.
// Members a test changes while the plug-in's threads run are atomic or behind a mutex.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/interfaces.h"

namespace testhost {

// A list of strings that several threads append to.
class Log {
public:
    void add(const std::string& line) {
        std::lock_guard<std::mutex> lock(mMutex);
        mLines.push_back(line);
    }
    std::vector<std::string> lines() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mLines;
    }

private:
    std::mutex mMutex;
    std::vector<std::string> mLines;
};

class FakeDevice : public zn::IDev {
public:
    explicit FakeDevice(std::string deviceName = "") : name(std::move(deviceName)) {}
    const std::string name;                   // for readable devcontrol calls
    std::atomic<double> maxThreshold{100.0};  // the range is [5, maxThreshold)
    std::atomic<int> setThresholdResult{0};
    std::atomic<int> acqResult{0};
    std::atomic<int> abortResult{-1};
    std::atomic<bool> blocking{false};        // runAcquisition waits for release() or an abort
    std::atomic<int> registerDelayMicros{0};  // between the call and the run's registration
    std::atomic<int> endDelayMillis{0};       // between the run's end and the call's return
    // Threshold settings and acquisitions: "threshold 0 2 5.000000", "COUNT TIME FLAG FILE".
    Log calls;

    int runAcquisition(int count, double time, int flag, const char* fileName) override {
        calls.add(std::to_string(count) + " " + std::to_string(time) + " " + std::to_string(flag) +
                  " " + fileName);
        std::this_thread::sleep_for(std::chrono::microseconds(registerDelayMicros));
        std::unique_lock<std::mutex> lock(mMutex);
        mRunning = true;
        mChanged.notify_all();
        if (blocking)
            mChanged.wait_for(lock, std::chrono::seconds(10),
                              [&] { return mAborted || mReleased; });
        const bool aborted = mAborted;
        mAborted = mReleased = mRunning = false;
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(endDelayMillis));
        return aborted ? abortResult.load() : acqResult.load();
    }
    // As a real device may: an abort that comes before the run has registered fails and is
    // forgotten.
    int abortAcquisition() override {
        std::lock_guard<std::mutex> lock(mMutex);
        ++aborts;
        if (!mRunning) return -1;
        mAborted = true;
        mChanged.notify_all();
        return 0;
    }
    int setThreshold(int selector, int kind, double value) override {
        calls.add("threshold " + std::to_string(selector) + " " + std::to_string(kind) + " " +
                  std::to_string(value));
        return setThresholdResult;
    }
    int thresholdRange(int, int, double* minValue, double* maxValue) override {
        *minValue = 5.0;
        *maxValue = maxThreshold;
        return 0;
    }
    void release() {
        std::lock_guard<std::mutex> lock(mMutex);
        mReleased = mRunning;
        mChanged.notify_all();
    }
    bool waitUntilRunning() {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::seconds(10), [&] { return mRunning; });
    }
    std::atomic<int> aborts{0};

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mRunning = false, mAborted = false, mReleased = false;
};

class FakeDevControl : public zn::IDevControl {
public:
    Log calls;

    int setFile(zn::IDev* device, const char* fileName, int flag) override {
        calls.add("setFile " + name(device) + " " + fileName + " " + std::to_string(flag));
        return 0;
    }
    int start(zn::IDev* device) override {
        calls.add("start " + name(device));
        std::lock_guard<std::mutex> lock(mMutex);
        mRunning.insert(device);
        return 0;
    }
    int stop(zn::IDev* device) override {
        calls.add("stop " + name(device));
        return 0;
    }
    bool isRunning(zn::IDev* device) override {
        std::lock_guard<std::mutex> lock(mMutex);
        return mRunning.count(device) != 0;
    }

private:
    // The host hands devcontrol only its own devices, which are all fake ones.
    static std::string name(zn::IDev* device) { return static_cast<FakeDevice*>(device)->name; }

    std::mutex mMutex;
    std::set<zn::IDev*> mRunning;
};

class FakeHandle : public zn::IPluginHandle {
public:
    void* interface = nullptr;
    void* privateInterface() override { return interface; }
};

class FakeHost : public zn::IZenthi {
public:
    std::string settingsDir = ".";
    std::vector<zn::IDev*> devices;   // the full list (GUI_ commands)
    std::vector<zn::IDev*> filtered;  // listDevicesFiltered(1) (START)
    std::atomic<bool> devControlLoaded{true};
    FakeDevControl devControl;
    FakeHandle handle;

    FakeHost() { handle.interface = &devControl; }
    Log logged;  // "SOURCE|LEVEL|MESSAGE"

    int log(const char* source, int level, const char* format, ...) override {
        char message[512];
        va_list args;
        va_start(args, format);
        std::vsnprintf(message, sizeof message, format, args);
        va_end(args);
        logged.add(std::string(source) + "|" + std::to_string(level) + "|" + message);
        return 0;
    }
    int listDevices(zn::IPtrList<zn::IDev*>* list) override { return fill(list, devices); }
    int listDevicesFiltered(zn::IPtrList<zn::IDev*>* list, int filter) override {
        return fill(list, filter == 1 ? filtered : std::vector<zn::IDev*>{});
    }
    zn::IPluginHandle* findPlugin(const char* name) override {
        return devControlLoaded && std::string(name) == "devcontrol" ? &handle : nullptr;
    }
    const char* configDir() override { return settingsDir.c_str(); }

private:
    static int fill(zn::IPtrList<zn::IDev*>* list, const std::vector<zn::IDev*>& from) {
        for (zn::IDev* device : from)
            list->add(device);
        return 0;
    }
};

}  // namespace testhost
