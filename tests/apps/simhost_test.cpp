// The simulated host, its devices and devcontrol, called directly as a plug-in would call them.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <future>
#include <sstream>
#include <string>
#include <thread>

#include "apps/znhost/datapath.h"
#include "apps/znhost/simhost.h"
#include "host/ptrlist.h"
#include "tests/apps/helpers.h"

namespace {

using apps_test::fileExists;
using apps_test::readFile;
using apps_test::splitLines;
using apps_test::TempDir;
using std::chrono::seconds;
using znhost::DeviceConfig;
using znhost::SimDevice;

const znhost::Tracer kQuiet(false, -1);

struct PathCase {
    const char* name;
    const char* file;
    bool safe;
};

// Rows print as their name in test listings.
void PrintTo(const PathCase& row, std::ostream* out) {
    *out << row.name;
}

class SimSafeDataPathTest : public ::testing::TestWithParam<PathCase> {};

TEST_P(SimSafeDataPathTest, KeepsFilesInsideTheDataFolder) {
    EXPECT_EQ(znhost::isSafeDataPath(GetParam().file), GetParam().safe);
}

const PathCase kPathCases[] = {
    {"plain", "run.txt", true},
    {"subfolder", "sub/run.txt", true},
    {"dot_component", "./run.txt", true},
    {"double_slash", "a//b", true},
    {"dots_inside_name", "a..b", true},
    {"three_dots", "...", true},
    {"dotdot_prefix_in_name", "..a", true},
    {"empty", "", false},
    {"absolute", "/tmp/run.txt", false},
    {"root", "/", false},
    {"dotdot", "..", false},
    {"dotdot_first", "../run.txt", false},
    {"dotdot_middle", "sub/../../run.txt", false},
    {"dotdot_last", "sub/..", false},
    {"dotdot_after_double_slash", "a//../b", false},
};

INSTANTIATE_TEST_SUITE_P(Rows, SimSafeDataPathTest, ::testing::ValuesIn(kPathCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(SimDataFilePath, JoinsWithOneSlash) {
    EXPECT_EQ(znhost::dataFilePath("d", "f"), "d/f");
    EXPECT_EQ(znhost::dataFilePath("d/", "f"), "d/f");
}

DeviceConfig smallDevice() {
    DeviceConfig config;
    config.name = "det";
    config.frameWidth = 3;
    config.frameHeight = 2;
    return config;
}

TEST(SimDevice, AcquisitionWritesCountFramesAsMatrix) {
    TempDir temp;
    SimDevice device(smallDevice(), temp.path(), kQuiet);
    ASSERT_EQ(device.runAcquisition(4, 0.0, 1, "run.txt"), 0);
    std::vector<std::string> lines = splitLines(readFile(temp.file("run.txt")));
    ASSERT_EQ(lines.size(), 8u);  // 4 frames of 2 rows
    for (const std::string& line : lines) {
        std::istringstream values(line);
        long value = -1;
        int count = 0;
        while (values >> value) {
            EXPECT_GE(value, 0);
            EXPECT_LE(value, 65535);
            ++count;
        }
        EXPECT_EQ(count, 3) << line;
    }
}

TEST(SimDevice, ResultComesFromConfig) {
    TempDir temp;
    DeviceConfig config = smallDevice();
    config.acqResult = 7;
    SimDevice device(config, temp.path(), kQuiet);
    EXPECT_EQ(device.runAcquisition(1, 0.0, 1, ""), 7);
}

TEST(SimDevice, ZeroFramesLeaveAnEmptyFileAndEmptyNameWritesNone) {
    TempDir temp;
    SimDevice device(smallDevice(), temp.path(), kQuiet);
    EXPECT_EQ(device.runAcquisition(0, 1.0, 1, "empty.txt"), 0);
    EXPECT_TRUE(fileExists(temp.file("empty.txt")));
    EXPECT_EQ(readFile(temp.file("empty.txt")), "");
    EXPECT_EQ(device.runAcquisition(1, 0.0, 1, ""), 0);
}

TEST(SimDevice, UnsafeOrInvalidRequestsFailAtOnceWritingNothing) {
    TempDir outer;
    std::string data = outer.file("data");
    ASSERT_EQ(mkdir(data.c_str(), 0755), 0);
    SimDevice device(smallDevice(), data, kQuiet);
    std::string absolute = outer.file("absolute.txt");
    EXPECT_EQ(device.runAcquisition(1, 0.0, 1, "../escape.txt"), -1);
    EXPECT_EQ(device.runAcquisition(1, 0.0, 1, absolute.c_str()), -1);
    EXPECT_EQ(device.runAcquisition(-1, 0.0, 1, "neg.txt"), -1);
    EXPECT_EQ(device.runAcquisition(1, -0.5, 1, "neg.txt"), -1);
    EXPECT_EQ(device.runAcquisition(1, std::nan(""), 1, "nan.txt"), -1);
    EXPECT_FALSE(fileExists(outer.file("escape.txt")));
    EXPECT_FALSE(fileExists(absolute));
    EXPECT_FALSE(fileExists(data + "/neg.txt"));
    EXPECT_FALSE(fileExists(data + "/nan.txt"));
}

TEST(SimDevice, MissingSubfolderFailsTheAcquisition) {
    TempDir temp;
    SimDevice device(smallDevice(), temp.path(), kQuiet);
    EXPECT_EQ(device.runAcquisition(1, 0.0, 1, "no/such/folder.txt"), -1);
}

// Runs runAcquisition on another thread and waits (bounded) until it is under way.
std::future<int> startAcquisition(SimDevice& device, int count, double time, const char* file) {
    std::future<int> result = std::async(std::launch::async, [&device, count, time, file] {
        return device.runAcquisition(count, time, 1, file);
    });
    for (int i = 0; i < 6000 && !device.acquiring(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_TRUE(device.acquiring());
    return result;
}

TEST(SimDevice, AbortFromAnotherThreadEndsTheAcquisition) {
    TempDir temp;
    DeviceConfig config = smallDevice();
    config.abortResult = -4;
    SimDevice device(config, temp.path(), kQuiet);
    std::future<int> result = startAcquisition(device, 1000, 10.0, "aborted.txt");
    EXPECT_EQ(device.abortAcquisition(), 0);
    ASSERT_EQ(result.wait_for(seconds(30)), std::future_status::ready);
    EXPECT_EQ(result.get(), -4);
    EXPECT_FALSE(device.acquiring());
    EXPECT_FALSE(fileExists(temp.file("aborted.txt"))) << "no frame was complete";
}

TEST(SimDevice, AbortWhileIdleReportsFailureAndDoesNotCarryOver) {
    TempDir temp;
    SimDevice device(smallDevice(), temp.path(), kQuiet);
    EXPECT_EQ(device.abortAcquisition(), -1);
    EXPECT_EQ(device.runAcquisition(2, 0.0, 1, ""), 0);
}

TEST(SimDevice, AbortKeepsTheFramesCompletedBeforeIt) {
    TempDir temp;
    SimDevice device(smallDevice(), temp.path(), kQuiet);
    std::future<int> result = startAcquisition(device, 1000000, 0.001, "part.txt");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // at least one 1 ms frame
    EXPECT_EQ(device.abortAcquisition(), 0);
    ASSERT_EQ(result.wait_for(seconds(30)), std::future_status::ready);
    EXPECT_EQ(result.get(), -1);
    size_t rows = splitLines(readFile(temp.file("part.txt"))).size();
    EXPECT_GT(rows, 0u);
    EXPECT_LT(rows, 2000000u);
    EXPECT_EQ(rows % 2, 0u) << "whole frames only";
}

TEST(SimDevice, SecondAcquisitionOnABusyDeviceFails) {
    TempDir temp;
    SimDevice device(smallDevice(), temp.path(), kQuiet);
    std::future<int> first = startAcquisition(device, 1000, 10.0, "");
    EXPECT_EQ(device.runAcquisition(1, 0.0, 1, "busy.txt"), -1);
    EXPECT_FALSE(fileExists(temp.file("busy.txt")));
    EXPECT_TRUE(device.shutDown(seconds(30)));
    ASSERT_EQ(first.wait_for(seconds(30)), std::future_status::ready);
}

TEST(SimDevice, ThresholdKeptOnlyWhenAccepted) {
    TempDir temp;
    DeviceConfig config = smallDevice();
    SimDevice accepting(config, temp.path(), kQuiet);
    EXPECT_EQ(accepting.setThreshold(0, 2, 12.5), 0);
    EXPECT_EQ(accepting.threshold(), 12.5);
    config.setThresholdResult = 9;
    SimDevice refusing(config, temp.path(), kQuiet);
    EXPECT_EQ(refusing.setThreshold(0, 2, 12.5), 9);
    EXPECT_EQ(refusing.threshold(), 0.0);
}

TEST(SimDevice, RangeWrittenOnlyWhenReported) {
    TempDir temp;
    DeviceConfig config = smallDevice();
    config.thresholdMin = -3;
    config.thresholdMax = 7;
    SimDevice reporting(config, temp.path(), kQuiet);
    double low = 0, high = 0;
    reporting.thresholdRange(0, 2, &low, &high);
    EXPECT_EQ(low, -3);
    EXPECT_EQ(high, 7);
    config.reportRange = false;
    SimDevice silent(config, temp.path(), kQuiet);
    low = high = 0;
    silent.thresholdRange(0, 2, &low, &high);
    EXPECT_EQ(low, 0);
    EXPECT_EQ(high, 0);
}

znhost::HostConfig threeDevices() {
    znhost::HostConfig config;
    for (const char* name : {"a", "b", "c"}) {
        DeviceConfig device;
        device.name = name;
        config.devices.push_back(device);
    }
    config.devices[1].filtered = false;
    return config;
}

std::vector<zn::IDev*> listed(znhost::SimHost& host, int filter) {
    zn::PtrList<zn::IDev*> list;
    if (filter < 0)
        host.listDevices(&list);
    else
        host.listDevicesFiltered(&list, filter);
    std::vector<zn::IDev*> devices;
    for (unsigned i = 0; i < list.size(); ++i)
        devices.push_back(list.get(i));
    return devices;
}

TEST(SimHost, FullAndFilteredListsKeepConfigOrder) {
    TempDir temp;
    znhost::SimHost host(threeDevices(), temp.path(), temp.path(), kQuiet);
    const auto& devices = host.devices();
    EXPECT_EQ(listed(host, -1),
              (std::vector<zn::IDev*>{devices[0].get(), devices[1].get(), devices[2].get()}));
    EXPECT_EQ(listed(host, 1), (std::vector<zn::IDev*>{devices[0].get(), devices[2].get()}));
    EXPECT_TRUE(listed(host, 2).empty());
}

TEST(SimHost, ConfigDirLosesTrailingSlashes) {
    znhost::HostConfig config;
    EXPECT_STREQ(znhost::SimHost(config, "/a/b//", ".", kQuiet).configDir(), "/a/b");
    EXPECT_STREQ(znhost::SimHost(config, "/", ".", kQuiet).configDir(), "");
    EXPECT_STREQ(znhost::SimHost(config, ".", ".", kQuiet).configDir(), ".");
}

TEST(SimHost, DevcontrolFollowsConfig) {
    TempDir temp;
    znhost::HostConfig config = threeDevices();
    znhost::SimHost loaded(config, temp.path(), temp.path(), kQuiet);
    zn::IPluginHandle* handle = loaded.findPlugin("devcontrol");
    ASSERT_NE(handle, nullptr);
    EXPECT_NE(handle->privateInterface(), nullptr);
    EXPECT_EQ(loaded.findPlugin("DevControl"), nullptr);
    EXPECT_EQ(loaded.findPlugin(nullptr), nullptr);

    config.devControl.privateInterface = false;
    znhost::SimHost withoutInterface(config, temp.path(), temp.path(), kQuiet);
    ASSERT_NE(withoutInterface.findPlugin("devcontrol"), nullptr);
    EXPECT_EQ(withoutInterface.findPlugin("devcontrol")->privateInterface(), nullptr);

    config.devControl.loaded = false;
    znhost::SimHost unloaded(config, temp.path(), temp.path(), kQuiet);
    EXPECT_EQ(unloaded.findPlugin("devcontrol"), nullptr);
}

TEST(SimDevControl, TracksRunsAndFilesPerDevice) {
    TempDir temp;
    znhost::SimHost host(threeDevices(), temp.path(), temp.path(), kQuiet);
    auto* control =
        static_cast<zn::IDevControl*>(host.findPlugin("devcontrol")->privateInterface());
    zn::IDev* first = host.devices()[0].get();
    zn::IDev* second = host.devices()[1].get();
    EXPECT_EQ(control->start(first), 0);
    EXPECT_TRUE(control->isRunning(first));
    EXPECT_FALSE(control->isRunning(second));
    EXPECT_EQ(control->setFile(second, "x.txt", 1), 0);
    EXPECT_EQ(host.devControl().fileOf(second), "x.txt");
    EXPECT_EQ(control->stop(first), 0);
    EXPECT_FALSE(control->isRunning(first));
}

TEST(SimDevControl, ForeignDevicePointerIsRefused) {
    TempDir temp;
    znhost::SimHost host(threeDevices(), temp.path(), temp.path(), kQuiet);
    auto* control =
        static_cast<zn::IDevControl*>(host.findPlugin("devcontrol")->privateInterface());
    SimDevice stranger(smallDevice(), temp.path(), kQuiet);
    EXPECT_EQ(control->start(&stranger), -1);
    EXPECT_FALSE(control->isRunning(&stranger));
    EXPECT_EQ(control->setFile(&stranger, "x", 1), -1);
}

TEST(SimHost, ShutDownEndsRunningAcquisitions) {
    TempDir temp;
    znhost::SimHost host(threeDevices(), temp.path(), temp.path(), kQuiet);
    std::future<int> result = startAcquisition(*host.devices()[2], 1000, 10.0, "");
    EXPECT_TRUE(host.shutDownDevices(seconds(30)));
    ASSERT_EQ(result.wait_for(seconds(30)), std::future_status::ready);
    EXPECT_EQ(result.get(), -1);
}

}  // namespace
