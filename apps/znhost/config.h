// The simulated host's description: its devices and its "devcontrol" plug-in.
//
// Without a config file the host has the devices sim0 and sim1, both filtered, with the default
// keys below, and devcontrol loaded with a private interface. A config file is an INI file with
// "=" between key and value and these sections:
//   [DeviceN]    N = 0, 1, ... consecutive; their order is the full device list. Keys (default):
//                Name (simN), Filtered (true), ThresholdMin (0), ThresholdMax (100),
//                ReportRange (true), SetThresholdResult (0), AcqResult (0), AbortResult (-1),
//                FrameWidth (16), FrameHeight (16).
//   [DevControl] Loaded (true), PrivateInterface (true).
// Choices: a file with no [DeviceN] section describes a host without devices; the file is read
// strictly (settings/strictini.h: a leading byte-order mark skipped, blanks and tabs around a
// value allowed, blanks around a key making it another key); booleans are true/false/1/0; whole
// numbers have nothing after their digits; thresholds are finite decimal numbers; frame sizes run
// from 1 to 4096; names must be non-empty and distinct; empty values, unknown sections, unknown
// keys, entries before the first section and a gap in the device numbering are errors. Every
// error is one line naming the file, and the section and key where there is one.
#pragma once

#include <string>
#include <vector>

namespace znhost {

struct DeviceConfig {
    std::string name;
    bool filtered = true;
    double thresholdMin = 0.0;
    double thresholdMax = 100.0;
    bool reportRange = true;
    int setThresholdResult = 0;
    int acqResult = 0;
    int abortResult = -1;
    int frameWidth = 16;
    int frameHeight = 16;
};

struct DevControlConfig {
    bool loaded = true;
    bool privateInterface = true;
};

struct HostConfig {
    std::vector<DeviceConfig> devices;
    DevControlConfig devControl;
};

constexpr int kMaxFrameSide = 4096;

HostConfig defaultHostConfig();

// Reads `path` into `config`. Returns true on success; otherwise false with `error` set to a
// one-line message, and `config` may be partly filled.
bool loadHostConfig(const std::string& path, HostConfig& config, std::string& error);

}  // namespace znhost
