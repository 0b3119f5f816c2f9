// The host config file: defaults, every key, and errors that name file, section and key.
#include <gtest/gtest.h>

#include <string>

#include "apps/znhost/config.h"
#include "tests/apps/helpers.h"

namespace {

using apps_test::TempDir;
using apps_test::writeFile;
using znhost::HostConfig;
using znhost::loadHostConfig;

class HostConfigTest : public ::testing::Test {
protected:
    bool load(const std::string& text) {
        writeFile(path(), text);
        error.clear();
        return loadHostConfig(path(), config, error);
    }
    std::string path() const { return temp.file("host.ini"); }

    TempDir temp;
    HostConfig config;
    std::string error;
};

TEST_F(HostConfigTest, BareHeadersGiveDevicesWithDefaults) {
    ASSERT_TRUE(load("[Device0]\n[Device1]\n[Device2]\n")) << error;
    ASSERT_EQ(config.devices.size(), 3u);
    EXPECT_EQ(config.devices[2].name, "sim2");
    EXPECT_EQ(config.devices[2].frameWidth, 16);
    EXPECT_EQ(config.devices[2].abortResult, -1);
}

TEST_F(HostConfigTest, NoDeviceSectionMeansNoDevices) {
    ASSERT_TRUE(load("[DevControl]\nLoaded=false\n")) << error;
    EXPECT_TRUE(config.devices.empty());
    EXPECT_FALSE(config.devControl.loaded);
    EXPECT_TRUE(config.devControl.privateInterface);
}

TEST_F(HostConfigTest, ReadsEveryKey) {
    ASSERT_TRUE(
        load("[DevControl]\r\nPrivateInterface=0\r\n"
             "[Device0]\nName= det \nFiltered=false\nThresholdMin=-1.5\n"
             "ThresholdMax=2e3\nReportRange=0\nSetThresholdResult=-7\nAcqResult=3\n"
             "AbortResult=0\nFrameWidth=4\nFrameHeight=4096\n"))
        << error;
    ASSERT_EQ(config.devices.size(), 1u);
    const znhost::DeviceConfig& device = config.devices[0];
    EXPECT_EQ(device.name, "det");
    EXPECT_FALSE(device.filtered);
    EXPECT_EQ(device.thresholdMin, -1.5);
    EXPECT_EQ(device.thresholdMax, 2000.0);
    EXPECT_FALSE(device.reportRange);
    EXPECT_EQ(device.setThresholdResult, -7);
    EXPECT_EQ(device.acqResult, 3);
    EXPECT_EQ(device.abortResult, 0);
    EXPECT_EQ(device.frameWidth, 4);
    EXPECT_EQ(device.frameHeight, 4096);
    EXPECT_TRUE(config.devControl.loaded);
    EXPECT_FALSE(config.devControl.privateInterface);
}

TEST_F(HostConfigTest, SectionsInAnyOrderAndRepeatedHeadersJoin) {
    ASSERT_TRUE(load("[Device1]\nName=b\n[Device0]\nName=a\n[Device1]\nFiltered=false\n")) << error;
    ASSERT_EQ(config.devices.size(), 2u);
    EXPECT_EQ(config.devices[0].name, "a");
    EXPECT_EQ(config.devices[1].name, "b");
    EXPECT_FALSE(config.devices[1].filtered);
}

struct ConfigErrorCase {
    const char* name;
    const char* text;
    const char* section;  // expected in the message, "" for file-level errors
    const char* key;      // expected in the message, "" when none applies
};

// Rows print as their name in test listings.
void PrintTo(const ConfigErrorCase& row, std::ostream* out) {
    *out << row.name;
}

class HostConfigErrorTest : public HostConfigTest,
                            public ::testing::WithParamInterface<ConfigErrorCase> {};

TEST_P(HostConfigErrorTest, NamesFileSectionAndKey) {
    const ConfigErrorCase& row = GetParam();
    ASSERT_FALSE(load(row.text));
    EXPECT_NE(error.find(path()), std::string::npos) << error;
    EXPECT_NE(error.find(row.section), std::string::npos) << error;
    EXPECT_NE(error.find(row.key), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << "one line: " << error;
}

const ConfigErrorCase kConfigErrors[] = {
    {"int_with_text_after", "[Device0]\nAcqResult=1x\n", "[Device0]", "AcqResult"},
    {"int_not_a_number", "[Device0]\nSetThresholdResult=abc\n", "[Device0]", "SetThresholdResult"},
    {"int_out_of_range", "[Device0]\nAbortResult=99999999999\n", "[Device0]", "AbortResult"},
    {"int_fraction", "[Device0]\nFrameWidth=2.5\n", "[Device0]", "FrameWidth"},
    {"frame_width_zero", "[Device0]\nFrameWidth=0\n", "[Device0]", "FrameWidth"},
    {"frame_height_too_big", "[Device0]\nFrameHeight=4097\n", "[Device0]", "FrameHeight"},
    {"double_with_text_after", "[Device0]\nThresholdMin=1.5x\n", "[Device0]", "ThresholdMin"},
    {"double_infinite", "[Device0]\nThresholdMax=inf\n", "[Device0]", "ThresholdMax"},
    {"empty_value", "[Device0]\nThresholdMax=\n", "[Device0]", "ThresholdMax"},
    {"bool_word", "[DevControl]\nLoaded=yes\n", "[DevControl]", "Loaded"},
    {"bool_upper_case", "[Device0]\nFiltered=TRUE\n", "[Device0]", "Filtered"},
    {"unknown_key", "[Device0]\nTreshold=1\n", "[Device0]", "Treshold"},
    {"key_with_blank", "[Device0]\nName =x\n", "[Device0]", "Name "},
    {"empty_name", "[Device0]\nName=  \n", "[Device0]", "Name"},
    {"duplicate_name", "[Device0]\nName=a\n[Device1]\nName=a\n", "[Device1]", "Name"},
    {"second_device_bad", "[Device0]\n[Device1]\nAcqResult=?\n", "[Device1]", "AcqResult"},
    {"unknown_section", "[Devices]\n", "[Devices]", ""},
    {"lower_case_section", "[device0]\n", "[device0]", ""},
    {"leading_zero_section", "[Device00]\n", "[Device00]", ""},
    {"gap_in_numbering", "[Device0]\n[Device2]\n", "[Device2]", "Device1"},
    {"numbering_not_from_zero", "[Device1]\n", "[Device1]", "Device0"},
    {"entry_before_section", "Name=x\n[Device0]\n", "", "Name"},
};

INSTANTIATE_TEST_SUITE_P(Rows, HostConfigErrorTest, ::testing::ValuesIn(kConfigErrors),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(HostConfigTest, MissingFileIsAnError) {
    ASSERT_FALSE(loadHostConfig(temp.file("absent.ini"), config, error));
    EXPECT_NE(error.find(temp.file("absent.ini")), std::string::npos) << error;
    EXPECT_NE(error.find("cannot read"), std::string::npos) << error;
}

TEST_F(HostConfigTest, FolderIsAnError) {
    ASSERT_FALSE(loadHostConfig(temp.path(), config, error));
    EXPECT_NE(error.find("cannot read"), std::string::npos) << error;
}

}  // namespace
