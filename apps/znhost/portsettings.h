// znhost --port N: the plug-in reads its port only from remotectrl.ini in the host's settings
// folder, so znhost hands it a folder of its own whose remotectrl.ini is the user's file (from
// --settings-dir, when it has one) with a [Settings] header and Port=N added at its end, where
// they override the user's port and leave every other line as the user wrote it. The user's
// folder is never written; the private one is removed when the object goes.
#pragma once

#include <string>

namespace znhost {

class PortSettings {
public:
    PortSettings() = default;
    ~PortSettings();
    PortSettings(const PortSettings&) = delete;
    PortSettings& operator=(const PortSettings&) = delete;

    // True when the folder holds the file; otherwise false with a one-line `error`, also when the
    // user's file exists but cannot be read. The folder is made in `tempBase`, by default the
    // system's temporary folder.
    bool create(const std::string& userDir, int port, std::string& error,
                const std::string& tempBase = "");
    const std::string& dir() const { return mDir; }

private:
    std::string mDir;
};

}  // namespace znhost
