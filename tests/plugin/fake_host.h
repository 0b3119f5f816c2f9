// A small hand-written host for the plug-in tests: devices whose acquisitions block until released
// or aborted, a devcontrol plug-in that records what it is asked, and a log that tests can read.
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
    // What the device reports and returns; set before the plug-in uses the device.
    // Atomic because tests change them while the plug-in's threads run.
    std::atomic<double> minThreshold{0.0};
    std::atomic<double> maxThreshold{100.0};
    std::atomic<bool> reportsRange{true};
    std::atomic<int> setThresholdResult{0};
    std::atomic<int> acqResult{0};
    std::atomic<int> abortResult{-1};
    std::atomic<bool> blocking{false};  // runAcquisition waits for release() or abortAcquisition()

    int runAcquisition(int count, double time, int flag, const char* fileName) override {
        std::unique_lock<std::mutex> lock(mMutex);
        mCalls.push_back({count, time, flag, fileName});
        mRunning = true;
        mCondition.notify_all();
        if (blocking)
            mCondition.wait_for(lock, std::chrono::seconds(10),
                                [&] { return mAborted || mReleased; });
        bool aborted = mAborted;
        mAborted = mReleased = mRunning = false;
        return aborted ? abortResult : acqResult;
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
        mThresholds.push_back({selector, kind, value});
        return setThresholdResult;
    }

    int thresholdRange(int, int, double* minValue, double* maxValue) override {
        if (reportsRange) {
            *minValue = minThreshold;
            *maxValue = maxThreshold;
        }
        return 0;
    }

    // Lets a blocking acquisition end with acqResult.
    void release() {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mRunning) mReleased = true;
        mCondition.notify_all();
    }

    // Waits until an acquisition has started (bounded); false on time-out.
    bool waitUntilRunning() {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCondition.wait_for(lock, std::chrono::seconds(5), [&] { return mRunning; });
    }

    struct AcqCall {
        int count;
        double time;
        int flag;
        std::string fileName;
    };
    struct ThresholdCall {
        int selector;
        int kind;
        double value;
    };
    std::vector<AcqCall> calls() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCalls;
    }
    std::vector<ThresholdCall> thresholds() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mThresholds;
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
    std::vector<AcqCall> mCalls;
    std::vector<ThresholdCall> mThresholds;
};

class FakeDevControl : public zn::IDevControl {
public:
    int setFile(zn::IDev* device, const char* fileName, int flag) override {
        std::lock_guard<std::mutex> lock(mMutex);
        log.push_back("setFile " + name(device) + " " + fileName + " " + std::to_string(flag));
        return 0;
    }
    int start(zn::IDev* device) override {
        std::lock_guard<std::mutex> lock(mMutex);
        log.push_back("start " + name(device));
        running.insert(device);
        return 0;
    }
    int stop(zn::IDev* device) override {
        std::lock_guard<std::mutex> lock(mMutex);
        log.push_back("stop " + name(device));
        running.erase(device);
        return 0;
    }
    bool isRunning(zn::IDev* device) override {
        std::lock_guard<std::mutex> lock(mMutex);
        log.push_back("isRunning " + name(device));
        return running.count(device) != 0;
    }

    std::vector<std::string> calls() {
        std::lock_guard<std::mutex> lock(mMutex);
        return log;
    }

    // Devices are named by the test so that the log reads well.
    std::vector<std::pair<zn::IDev*, std::string>> names;

private:
    std::string name(zn::IDev* device) const {
        for (const auto& entry : names)
            if (entry.first == device) return entry.second;
        return "?";
    }

    std::mutex mMutex;
    std::vector<std::string> log;
    std::set<zn::IDev*> running;
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
    int listDevices(zn::IPtrList<zn::IDev*>* list) override {
        for (zn::IDev* device : devices)
            list->add(device);
        return 0;
    }
    int listDevicesFiltered(zn::IPtrList<zn::IDev*>* list, int filter) override {
        lastFilter = filter;
        for (zn::IDev* device : filtered)
            list->add(device);
        return 0;
    }
    zn::IPluginHandle* findPlugin(const char* name) override {
        return devControlLoaded && std::string(name) == "devcontrol" ? &handle : nullptr;
    }
    const char* configDir() override { return settingsDir.c_str(); }

    std::vector<std::string> logLines() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mLog;
    }

    std::atomic<int> lastFilter{0};

private:
    std::mutex mMutex;
    std::vector<std::string> mLog;
};

}  // namespace testhost
