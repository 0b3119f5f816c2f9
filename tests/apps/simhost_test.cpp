// The simulated host, its devices and devcontrol, called directly as a plug-in would call them.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <future>
#include <string>
#include <thread>

#include "apps/znhost/datapath.h"
#include "apps/znhost/simhost.h"
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
    EXPECT_EQ(device.runAcquisition(2000000000, 0.0, 1, "huge.txt"), -1);  // would fill the disk
    EXPECT_FALSE(fileExists(outer.file("escape.txt")));
    EXPECT_FALSE(fileExists(absolute));
    EXPECT_FALSE(fileExists(data + "/neg.txt"));
    EXPECT_FALSE(fileExists(data + "/nan.txt"));
    EXPECT_FALSE(fileExists(data + "/huge.txt"));
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

TEST(SimHost, ConfigDirLosesTrailingSlashes) {
    znhost::HostConfig config;
    EXPECT_STREQ(znhost::SimHost(config, "/a/b//", ".", kQuiet).configDir(), "/a/b");
    EXPECT_STREQ(znhost::SimHost(config, "/", ".", kQuiet).configDir(), "");
    EXPECT_STREQ(znhost::SimHost(config, ".", ".", kQuiet).configDir(), ".");
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
