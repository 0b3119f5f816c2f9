// A small hand-written host for the plug-in tests: devices whose acquisitions may block until
// released or aborted, a devcontrol plug-in that records what it is asked, and a readable log.
// Every member a test changes while the plug-in's threads run is atomic or behind the mutex.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "host/interfaces.h"

namespace testhost {

class FakeDevice : public zn::IDev {
public:
    std::atomic<double> maxThreshold{100.0};
    std::atomic<int> setThresholdResult{0};
    std::atomic<int> acqResult{0};
    std::atomic<int> abortResult{-1};
    std::atomic<bool> blocking{false};  // runAcquisition waits for release() or an abort

    int runAcquisition(int count, double time, int flag, const char* fileName) override {
        std::unique_lock<std::mutex> lock(mMutex);
        mCalls.push_back(std::to_string(count) + " " + std::to_string(time) + " " +
                         std::to_string(flag) + " " + fileName);
        mRunning = true;
        mCondition.notify_all();
        if (blocking)
            mCondition.wait_for(lock, std::chrono::seconds(10),
                                [&] { return mAborted || mReleased; });
        const bool aborted = mAborted;
        mAborted = mReleased = mRunning = false;
        return aborted ? abortResult.load() : acqResult.load();
    }
    int abortAcquisition() override {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mAborts;
        if (mRunning) mAborted = true;
        mCondition.notify_all();
        return 0;
    }
    int setThreshold(int selector, int kind, double value) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mCalls.push_back("threshold " + std::to_string(selector) + " " + std::to_string(kind) +
                         " " + std::to_string(value));
        return setThresholdResult;
    }
    int thresholdRange(int, int, double* minValue, double* maxValue) override {
        *minValue = 5.0;
        *maxValue = maxThreshold;
        return 0;
    }

    void release() {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mRunning) mReleased = true;
        mCondition.notify_all();
    }
    bool waitUntilRunning() {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCondition.wait_for(lock, std::chrono::seconds(10), [&] { return mRunning; });
    }
    // Threshold settings and acquisitions, in order: "threshold 0 2 10.000000",
    // "COUNT TIME FLAG FILE".
    std::vector<std::string> calls() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCalls;
    }
    int aborts() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mAborts;
    }

private:
    std::mutex mMutex;
    std::condition_variable mCondition;
    bool mRunning = false;
    bool mAborted = false;
    bool mReleased = false;
    int mAborts = 0;
    std::vector<std::string> mCalls;
};

class FakeDevControl : public zn::IDevControl {
public:
    std::vector<std::pair<zn::IDev*, std::string>> names;  // set by the test, for readable logs

    int setFile(zn::IDev* device, const char* fileName, int flag) override {
        return record("setFile " + name(device) + " " + fileName + " " + std::to_string(flag));
    }
    int start(zn::IDev* device) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mRunning.insert(device);
        return recordLocked("start " + name(device));
    }
    int stop(zn::IDev* device) override { return record("stop " + name(device)); }
    bool isRunning(zn::IDev* device) override {
        std::lock_guard<std::mutex> lock(mMutex);
        return mRunning.count(device) != 0;
    }
    std::vector<std::string> calls() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mLog;
    }

private:
    std::string name(zn::IDev* device) const {
        for (const auto& entry : names)
            if (entry.first == device) return entry.second;
        return "?";
    }
    int record(const std::string& call) {
        std::lock_guard<std::mutex> lock(mMutex);
        return recordLocked(call);
    }
    int recordLocked(const std::string& call) {
        mLog.push_back(call);
        return 0;
    }

    std::mutex mMutex;
    std::vector<std::string> mLog;
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
    bool devControlLoaded = true;
    FakeDevControl devControl;
    FakeHandle handle;

    FakeHost() { handle.interface = &devControl; }

    int log(const char* source, int level, const char* format, ...) override {
        char message[512];
        va_list args;
        va_start(args, format);
        std::vsnprintf(message, sizeof message, format, args);
        va_end(args);
        std::lock_guard<std::mutex> lock(mMutex);
        mLog.push_back(std::string(source) + "|" + std::to_string(level) + "|" + message);
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

    std::vector<std::string> logLines() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mLog;
    }

private:
    static int fill(zn::IPtrList<zn::IDev*>* list, const std::vector<zn::IDev*>& from) {
        for (zn::IDev* device : from)
            list->add(device);
        return 0;
    }

    std::mutex mMutex;
    std::vector<std::string> mLog;
};

}  // namespace testhost
