// A znhost process per test: temporary settings and data folders, a free loopback port in the
// settings file, output captured to files, and the process killed and reaped in teardown.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/apps/helpers.h"

namespace apps_test {

struct ClientRun {
    bool ended = false;
    int exitCode = -1;
    std::string out;
    std::string err;
};

class ZnhostTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override { mHost.kill(); }

    // Writes a host config file into the temporary folder and returns its path.
    std::string writeConfig(const std::string& text);
    // Starts znhost with the folders, then `extra`, and waits for "ready".
    ::testing::AssertionResult startHost(const std::vector<std::string>& extra = {});
    // Starts znhost and waits until its command server accepts connections.
    ::testing::AssertionResult startServing(const std::vector<std::string>& extra = {});
    // Runs znhost with `args` only (no folders added) until it exits on its own.
    ::testing::AssertionResult runHostToExit(const std::vector<std::string>& args);
    // SIGTERM, then a bounded wait for the exit.
    ::testing::AssertionResult stopHost();

    // Starts rcclient on the test's port with `args`; `input` becomes its standard input.
    // Returns the prefix of its output files, for finishClient.
    std::string startClient(ChildProcess& client, const std::vector<std::string>& args,
                            const std::string& input = "");
    // Waits (bounded) for the client's exit, then kills it if needed, and collects its output.
    ClientRun finishClient(ChildProcess& client, const std::string& prefix);
    ClientRun runClient(const std::vector<std::string>& args, const std::string& input = "");

    std::string hostStdout() const { return readFile(mTemp.file("znhost.out")); }
    std::string hostStderr() const { return readFile(mTemp.file("znhost.err")); }
    std::vector<std::string> traceLines() const;
    bool waitForHostStderr(const std::string& text, milliseconds bound = kReplyBound) const {
        return waitForFileText(mTemp.file("znhost.err"), text, bound);
    }

    TempDir mTemp;
    std::string mSettingsDir;
    std::string mDataDir;
    int mPort = -1;
    ChildProcess mHost;
    int mClientRuns = 0;
};

}  // namespace apps_test
