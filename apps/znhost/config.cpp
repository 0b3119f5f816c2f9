#include "apps/znhost/config.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <set>

#include "settings/inifile.h"

namespace znhost {

namespace {

constexpr const char* kDevControlSection = "DevControl";
constexpr const char* kDevicePrefix = "Device";
// The INI reader files entries that stand before any header under this section name.
constexpr const char* kNoSection = "!";

std::string trimmed(const std::string& text, const char* blanks) {
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

bool isReadableFile(const std::string& path, std::string& error) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) {
        error = path + ": cannot read the file: " + std::strerror(errno);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        error = path + ": cannot read the file: not a regular file";
        return false;
    }
    return true;
}

// The INI store drops sections that hold no entry, yet a bare [DeviceN] header is a device with
// every key at its default; so the headers are collected here, with the INI reader's own rule: a
// line trimmed of "\r \n" at both ends, two characters or more, starting with '['.
bool readSectionHeaders(const std::string& path, std::vector<std::string>& headers,
                        std::string& error) {
    std::ifstream in(path);
    if (!in) {
        error = path + ": cannot read the file: " + std::strerror(errno);
        return false;
    }
    std::string line;
    while (std::getline(in, line)) {
        line = trimmed(line.substr(0, line.find('\0')), "\r \n");
        if (line.size() >= 2 && line[0] == '[') headers.push_back(line.substr(1, line.size() - 2));
    }
    if (in.bad()) {
        error = path + ": cannot read the file";
        return false;
    }
    return true;
}

// "Device" followed by a decimal number without leading zeros.
bool parseDeviceSection(const std::string& section, int& index) {
    size_t prefixLength = std::strlen(kDevicePrefix);
    if (section.compare(0, prefixLength, kDevicePrefix) != 0) return false;
    std::string digits = section.substr(prefixLength);
    if (digits.empty() || digits.size() > 6) return false;
    if (digits.size() > 1 && digits[0] == '0') return false;
    for (char c : digits)
        if (c < '0' || c > '9') return false;
    index = std::atoi(digits.c_str());
    return true;
}

// Reads the keys of one section strictly, remembering the first error.
class SectionReader {
public:
    SectionReader(const IniFile& ini, const std::string& path, std::string section,
                  std::string& error)
        : mIni(ini), mPath(path), mSection(std::move(section)), mError(error) {}

    bool checkKeys(std::initializer_list<const char*> known) {
        for (const std::string& key : mIni.getSectionKeys(mSection.c_str())) {
            bool isKnown = false;
            for (const char* name : known)
                isKnown = isKnown || key == name;
            if (!isKnown) return fail(key, "unknown key");
        }
        return true;
    }

    bool readText(const char* key, std::string& value) {
        std::string text;
        if (!readRaw(key, text)) return false;
        if (!text.empty()) value = text;
        return true;
    }

    bool readBool(const char* key, bool& value) {
        std::string text;
        if (!readRaw(key, text)) return false;
        if (text.empty()) return true;
        if (text == "true" || text == "1") {
            value = true;
        } else if (text == "false" || text == "0") {
            value = false;
        } else {
            return fail(key, "\"" + text + "\" is not true, false, 1 or 0");
        }
        return true;
    }

    bool readInt(const char* key, int& value, long min = INT_MIN, long max = INT_MAX) {
        std::string text;
        if (!readRaw(key, text)) return false;
        if (text.empty()) return true;
        errno = 0;
        char* end = nullptr;
        long number = std::strtol(text.c_str(), &end, 10);
        if (errno != 0 || *end != '\0' || number < min || number > max)
            return fail(key, "\"" + text + "\" is not a whole number from " + std::to_string(min) +
                                 " to " + std::to_string(max));
        value = static_cast<int>(number);
        return true;
    }

    bool readDouble(const char* key, double& value) {
        std::string text;
        if (!readRaw(key, text)) return false;
        if (text.empty()) return true;
        errno = 0;
        char* end = nullptr;
        double number = std::strtod(text.c_str(), &end);
        if (errno != 0 || *end != '\0' || !std::isfinite(number))
            return fail(key, "\"" + text + "\" is not a finite number");
        value = number;
        return true;
    }

private:
    // Leaves `text` empty when the key is absent; an empty value that is present is an error.
    bool readRaw(const char* key, std::string& text) {
        text.clear();
        if (!mIni.itemExists(mSection.c_str(), key)) return true;
        text = trimmed(mIni.get(mSection.c_str(), key, ""), " \t");
        if (text.empty()) return fail(key, "empty value");
        return true;
    }

    bool fail(const std::string& key, const std::string& what) {
        mError = mPath + ": [" + mSection + "] " + key + ": " + what;
        return false;
    }

    const IniFile& mIni;
    const std::string& mPath;
    std::string mSection;
    std::string& mError;
};

bool readDevice(const IniFile& ini, const std::string& path, int index, DeviceConfig& device,
                std::string& error) {
    device = DeviceConfig();
    device.name = "sim" + std::to_string(index);
    SectionReader reader(ini, path, kDevicePrefix + std::to_string(index), error);
    return reader.checkKeys({"Name", "Filtered", "ThresholdMin", "ThresholdMax", "ReportRange",
                             "SetThresholdResult", "AcqResult", "AbortResult", "FrameWidth",
                             "FrameHeight"}) &&
           reader.readText("Name", device.name) && reader.readBool("Filtered", device.filtered) &&
           reader.readDouble("ThresholdMin", device.thresholdMin) &&
           reader.readDouble("ThresholdMax", device.thresholdMax) &&
           reader.readBool("ReportRange", device.reportRange) &&
           reader.readInt("SetThresholdResult", device.setThresholdResult) &&
           reader.readInt("AcqResult", device.acqResult) &&
           reader.readInt("AbortResult", device.abortResult) &&
           reader.readInt("FrameWidth", device.frameWidth, 1, kMaxFrameSide) &&
           reader.readInt("FrameHeight", device.frameHeight, 1, kMaxFrameSide);
}

bool readDevControl(const IniFile& ini, const std::string& path, DevControlConfig& devControl,
                    std::string& error) {
    SectionReader reader(ini, path, kDevControlSection, error);
    return reader.checkKeys({"Loaded", "PrivateInterface"}) &&
           reader.readBool("Loaded", devControl.loaded) &&
           reader.readBool("PrivateInterface", devControl.privateInterface);
}

// Collects the device numbers and rejects unknown sections and gaps in the numbering.
bool countDevices(const std::string& path, const std::vector<std::string>& headers, int& count,
                  std::string& error) {
    std::set<int> indexes;
    for (const std::string& section : headers) {
        int index = 0;
        if (parseDeviceSection(section, index)) {
            indexes.insert(index);
        } else if (section != kDevControlSection) {
            error = path + ": [" + section + "]: unknown section";
            return false;
        }
    }
    count = 0;
    for (int index : indexes) {
        if (index != count) {
            error = path + ": [" + kDevicePrefix + std::to_string(index) +
                    "]: devices are numbered from 0 without gaps, but " + kDevicePrefix +
                    std::to_string(count) + " is missing";
            return false;
        }
        ++count;
    }
    return true;
}

bool checkDistinctNames(const std::string& path, const std::vector<DeviceConfig>& devices,
                        std::string& error) {
    std::set<std::string> names;
    for (size_t i = 0; i < devices.size(); ++i) {
        if (!names.insert(devices[i].name).second) {
            error = path + ": [" + kDevicePrefix + std::to_string(i) + "] Name: \"" +
                    devices[i].name + "\" names another device already";
            return false;
        }
    }
    return true;
}

}  // namespace

HostConfig defaultHostConfig() {
    HostConfig config;
    for (int i = 0; i < 2; ++i) {
        DeviceConfig device;
        device.name = "sim" + std::to_string(i);
        config.devices.push_back(device);
    }
    return config;
}

bool loadHostConfig(const std::string& path, HostConfig& config, std::string& error) {
    std::vector<std::string> headers;
    if (!isReadableFile(path, error) || !readSectionHeaders(path, headers, error)) return false;
    IniFile ini(path.c_str(), "=");
    if (ini.load(nullptr) != IniFile::kOk) {
        error = path + ": cannot read the file";
        return false;
    }
    std::vector<std::string> stray = ini.getSectionKeys(kNoSection);
    if (!stray.empty()) {
        error = path + ": " + stray.front() + ": entry before the first section";
        return false;
    }
    int deviceCount = 0;
    if (!countDevices(path, headers, deviceCount, error)) return false;
    config = HostConfig();
    config.devices.resize(static_cast<size_t>(deviceCount));
    for (int i = 0; i < deviceCount; ++i)
        if (!readDevice(ini, path, i, config.devices[static_cast<size_t>(i)], error)) return false;
    return readDevControl(ini, path, config.devControl, error) &&
           checkDistinctNames(path, config.devices, error);
}

}  // namespace znhost
