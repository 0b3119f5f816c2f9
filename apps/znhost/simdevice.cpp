#include "apps/znhost/simdevice.h"

#include <algorithm>
#include <cmath>

#include "apps/znhost/datafile.h"
#include "apps/znhost/datapath.h"
#include "apps/znhost/frames.h"
#include "apps/znhost/lineout.h"

namespace znhost {

namespace {

// Logs why an acquisition's file could not be written; false, for the caller to return.
bool writeFailed(const std::string& device, const std::string& file, const std::string& error) {
    writeLogLine(kHostLogSource, device + ": could not write \"" + file + "\": " + error);
    return false;
}

constexpr double kMaxWaitSeconds = 1e7;

using Clock = std::chrono::steady_clock;

Clock::duration toDuration(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(std::min(seconds, kMaxWaitSeconds)));
}

// A remote client must not be able to fill the disk of the machine running the simulator.
constexpr unsigned long long kMaxValuesPerFile = 50000000;  // about 300 MB of text

bool validRequest(int count, double time) {
    return count >= 0 && std::isfinite(time) && time >= 0;
}

}  // namespace

bool SimDevice::fileTooLarge(int count) const {
    const unsigned long long values = static_cast<unsigned long long>(count) *
                                      static_cast<unsigned long long>(mConfig.frameWidth) *
                                      static_cast<unsigned long long>(mConfig.frameHeight);
    return values > kMaxValuesPerFile;
}

SimDevice::SimDevice(DeviceConfig config, std::string dataDir, const Tracer& tracer)
    : mConfig(std::move(config)), mDataDir(std::move(dataDir)), mTracer(tracer) {}

int SimDevice::runAcquisition(int count, double time, int flag, const char* fileName) {
    mTracer.call(mConfig.name, "runAcquisition", count, time, flag, Quoted{fileName});
    std::string file = fileName == nullptr ? "" : fileName;
    if (!validRequest(count, time)) return -1;
    if (!file.empty() && !isSafeDataPath(file)) {
        writeLogLine(kHostLogSource, mConfig.name + ": refused the file name \"" + file +
                                         "\": it must stay inside the data folder");
        return -1;
    }
    if (!file.empty() && fileTooLarge(count)) {
        writeLogLine(kHostLogSource, mConfig.name + ": refused " + std::to_string(count) +
                                         " frames: the file would exceed " +
                                         std::to_string(kMaxValuesPerFile) + " values");
        return -1;
    }
    DataFile data;
    if (!file.empty() && !openDataFile(data, file)) return -1;
    if (!beginAcquisition()) return -1;
    Outcome outcome = waitForAcquisition(count, time);
    bool saved = file.empty() || saveFrames(data, file, outcome);
    endAcquisition();
    if (outcome.aborted) return mConfig.abortResult;
    return saved ? mConfig.acqResult : -1;
}

int SimDevice::abortAcquisition() {
    mTracer.call(mConfig.name, "abortAcquisition");
    std::lock_guard<std::mutex> lock(mMutex);
    if (!mRunning) return -1;
    mAbortRequested = true;
    mChanged.notify_all();
    return 0;
}

int SimDevice::setThreshold(int selector, int kind, double value) {
    mTracer.call(mConfig.name, "setThreshold", selector, kind, value);
    if (mConfig.setThresholdResult != 0) return mConfig.setThresholdResult;
    std::lock_guard<std::mutex> lock(mMutex);
    mThreshold = value;
    return 0;
}

int SimDevice::thresholdRange(int selector, int kind, double* minValue, double* maxValue) {
    mTracer.call(mConfig.name, "thresholdRange", selector, kind);
    if (!mConfig.reportRange) return 0;
    if (minValue != nullptr) *minValue = mConfig.thresholdMin;
    if (maxValue != nullptr) *maxValue = mConfig.thresholdMax;
    return 0;
}

double SimDevice::threshold() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mThreshold;
}

bool SimDevice::acquiring() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRunning;
}

bool SimDevice::shutDown(std::chrono::milliseconds bound) {
    std::unique_lock<std::mutex> lock(mMutex);
    if (mRunning) {
        mAbortRequested = true;
        mShuttingDown = true;
        mChanged.notify_all();
    }
    return mChanged.wait_for(lock, bound, [this] { return !mRunning; });
}

bool SimDevice::beginAcquisition() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mRunning) return false;
    mRunning = true;
    mAbortRequested = false;
    return true;
}

SimDevice::Outcome SimDevice::waitForAcquisition(int count, double time) {
    Clock::time_point start = Clock::now();
    Clock::time_point deadline = start + toDuration(static_cast<double>(count) * time);
    std::unique_lock<std::mutex> lock(mMutex);
    bool aborted = mChanged.wait_until(lock, deadline, [this] { return mAbortRequested; });
    if (!aborted) return {false, count};
    double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    double frames = time > 0 ? std::floor(elapsed / time) : static_cast<double>(count);
    return {true, static_cast<int>(std::min(frames, static_cast<double>(count)))};
}

void SimDevice::endAcquisition() {
    std::lock_guard<std::mutex> lock(mMutex);
    mRunning = false;
    mAbortRequested = false;
    mShuttingDown = false;
    mChanged.notify_all();
}

bool SimDevice::openDataFile(DataFile& data, const std::string& file) {
    std::string error;
    if (data.open(mDataDir, file, error)) return true;
    return writeFailed(mConfig.name, file, error);
}

bool SimDevice::shuttingDown() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mShuttingDown;
}

// The host's shutdown is looked at between frames, so that a file cut short by it still holds
// whole frames; an aborted acquisition without a whole frame leaves no file at all.
bool SimDevice::saveFrames(DataFile& data, const std::string& file, Outcome& outcome) {
    std::string error;
    int written = 0;
    while (error.empty() && written < outcome.completedFrames && !shuttingDown())
        if (data.append(frameText(mConfig.frameWidth, mConfig.frameHeight, written), error))
            ++written;
    outcome.aborted = outcome.aborted || (error.empty() && written < outcome.completedFrames);
    if (outcome.aborted && written == 0) return true;
    if (error.empty() && data.commit(error)) return true;
    return writeFailed(mConfig.name, file, error);
}

}  // namespace znhost
