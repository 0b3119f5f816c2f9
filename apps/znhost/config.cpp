#include "apps/znhost/config.h"

#include <cstdlib>
#include <cstring>
#include <set>

#include "settings/strictini.h"

namespace znhost {

namespace {

constexpr const char* kDevControlSection = "DevControl";
constexpr const char* kDevicePrefix = "Device";
constexpr std::size_t kMostDeviceDigits = 6;
constexpr int kDefaultDeviceCount = 2;

std::string deviceSection(int index) {
    return kDevicePrefix + std::to_string(index);
}

// "Device" followed by a decimal number without leading zeros.
bool parseDeviceSection(const std::string& section, int& index) {
    const std::size_t prefixLength = std::strlen(kDevicePrefix);
    if (section.compare(0, prefixLength, kDevicePrefix) != 0) return false;
    const std::string digits = section.substr(prefixLength);
    if (digits.empty() || digits.size() > kMostDeviceDigits) return false;
    if (digits.size() > 1 && digits[0] == '0') return false;
    if (digits.find_first_not_of("0123456789") != std::string::npos) return false;
    index = std::atoi(digits.c_str());
    return true;
}

bool isKnownSection(const std::string& section) {
    int index = 0;
    return section == kDevControlSection || parseDeviceSection(section, index);
}

bool readDevice(StrictIni& ini, int index, DeviceConfig& device) {
    device = DeviceConfig();
    device.name = "sim" + std::to_string(index);
    const std::string section = deviceSection(index);
    return ini.checkKeys(section, {"Name", "Filtered", "ThresholdMin", "ThresholdMax",
                                   "ReportRange", "SetThresholdResult", "AcqResult", "AbortResult",
                                   "FrameWidth", "FrameHeight"}) &&
           ini.readText(section, "Name", device.name) &&
           ini.readBool(section, "Filtered", device.filtered) &&
           ini.readReal(section, "ThresholdMin", device.thresholdMin) &&
           ini.readReal(section, "ThresholdMax", device.thresholdMax) &&
           ini.readBool(section, "ReportRange", device.reportRange) &&
           ini.readWhole(section, "SetThresholdResult", device.setThresholdResult) &&
           ini.readWhole(section, "AcqResult", device.acqResult) &&
           ini.readWhole(section, "AbortResult", device.abortResult) &&
           ini.readWhole(section, "FrameWidth", device.frameWidth, 1, kMaxFrameSide) &&
           ini.readWhole(section, "FrameHeight", device.frameHeight, 1, kMaxFrameSide);
}

bool readDevControl(StrictIni& ini, DevControlConfig& devControl) {
    return ini.checkKeys(kDevControlSection, {"Loaded", "PrivateInterface"}) &&
           ini.readBool(kDevControlSection, "Loaded", devControl.loaded) &&
           ini.readBool(kDevControlSection, "PrivateInterface", devControl.privateInterface);
}

// The device sections, known to be well-formed, must be numbered from 0 without gaps.
bool countDevices(StrictIni& ini, int& count) {
    std::set<int> indexes;
    for (const std::string& section : ini.sections()) {
        int index = 0;
        if (parseDeviceSection(section, index)) indexes.insert(index);
    }
    count = 0;
    for (int index : indexes) {
        if (index != count)
            return ini.fail(deviceSection(index), "",
                            "devices are numbered from 0 without gaps, but " +
                                deviceSection(count) + " is missing");
        ++count;
    }
    return true;
}

bool checkDistinctNames(StrictIni& ini, const std::vector<DeviceConfig>& devices) {
    std::set<std::string> names;
    for (std::size_t i = 0; i < devices.size(); ++i)
        if (!names.insert(devices[i].name).second)
            return ini.fail(deviceSection(static_cast<int>(i)), "Name",
                            "\"" + devices[i].name + "\" names another device already");
    return true;
}

bool readConfig(StrictIni& ini, HostConfig& config) {
    int deviceCount = 0;
    if (!ini.checkSections(isKnownSection) || !countDevices(ini, deviceCount)) return false;
    config = HostConfig();
    config.devices.resize(static_cast<std::size_t>(deviceCount));
    for (int i = 0; i < deviceCount; ++i)
        if (!readDevice(ini, i, config.devices[static_cast<std::size_t>(i)])) return false;
    return readDevControl(ini, config.devControl) && checkDistinctNames(ini, config.devices);
}

}  // namespace

HostConfig defaultHostConfig() {
    HostConfig config;
    for (int i = 0; i < kDefaultDeviceCount; ++i) {
        DeviceConfig device;
        device.name = "sim" + std::to_string(i);
        config.devices.push_back(device);
    }
    return config;
}

bool loadHostConfig(const std::string& path, HostConfig& config, std::string& error) {
    StrictIni ini(EmptyValues::AreErrors);
    if (ini.load(path) == TextFileRead::Read && readConfig(ini, config)) return true;
    error = ini.error();
    return false;
}

}  // namespace znhost
