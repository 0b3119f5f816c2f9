// A simulated acquisition device.
//
// runAcquisition(count, time, flag, file) takes count x time seconds of wall time, ends early
// when abortAcquisition() is called from another thread, and writes the frames under the data
// folder when `file` is not empty. Every call may come from any thread.
// Results: runAcquisition returns AcqResult, or AbortResult when aborted; -1 at once, writing
// nothing, for a negative count, a negative or non-finite time, an absolute file name or one
// with a ".." component, a file of more than 50,000,000 values (count x FrameWidth x FrameHeight),
// or when an acquisition already runs on this device; -1 at once too when the file cannot be
// opened beneath the data folder or names anything but a regular file (see datafile.h), and -1
// after the acquisition when a write fails (the file is then left as it was).
// abortAcquisition returns 0 when it ended a running acquisition, else -1. setThreshold returns
// SetThresholdResult and keeps the value only when that is 0; thresholdRange returns 0 and writes
// the range only when ReportRange is true. Choices: an aborted acquisition writes the frames
// completed before the abort (no file when none was); shutDown() during the writing keeps the
// frames written so far and returns AbortResult; count 0 with a file name leaves an empty file;
// the wait is capped at 10^7 seconds.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "apps/znhost/config.h"
#include "apps/znhost/datafile.h"
#include "apps/znhost/trace.h"
#include "host/interfaces.h"

namespace znhost {

class SimDevice : public zn::IDev {
public:
    SimDevice(DeviceConfig config, std::string dataDir, const Tracer& tracer);
    virtual ~SimDevice() = default;

    int runAcquisition(int count, double time, int flag, const char* fileName) override;
    int abortAcquisition() override;
    int setThreshold(int selector, int kind, double value) override;
    int thresholdRange(int selector, int kind, double* minValue, double* maxValue) override;

    const std::string& name() const { return mConfig.name; }
    bool filtered() const { return mConfig.filtered; }
    double threshold() const;
    bool acquiring() const;

    // The host's own shutdown: ends a running acquisition and waits at most `bound` for its
    // runAcquisition call to return. True when the device is idle on return.
    bool shutDown(std::chrono::milliseconds bound);

private:
    bool fileTooLarge(int count) const;

    struct Outcome {
        bool aborted;
        int completedFrames;
    };

    bool beginAcquisition();
    Outcome waitForAcquisition(int count, double time);
    void endAcquisition();
    bool openDataFile(DataFile& data, const std::string& file);
    bool shuttingDown() const;
    bool saveFrames(DataFile& data, const std::string& file, Outcome& outcome);

    const DeviceConfig mConfig;
    const std::string mDataDir;
    const Tracer& mTracer;

    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    bool mRunning = false;
    bool mAbortRequested = false;
    bool mShuttingDown = false;
    double mThreshold = 0.0;
};

}  // namespace znhost
