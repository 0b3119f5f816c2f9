#include "tests/apps/znhost_fixture.h"

#include <sys/stat.h>

namespace apps_test {

void ZnhostTest::SetUp() {
    ASSERT_FALSE(mTemp.path().empty());
    mSettingsDir = mTemp.file("settings");
    mDataDir = mTemp.file("data");
    ASSERT_EQ(mkdir(mSettingsDir.c_str(), 0755), 0);
    ASSERT_EQ(mkdir(mDataDir.c_str(), 0755), 0);
    mPort = freeLoopbackPort();
    ASSERT_GT(mPort, 0);
    writeFile(mSettingsDir + "/remotectrl.ini", "[Settings]\nPort=" + std::to_string(mPort) + "\n");
}

std::string ZnhostTest::writeConfig(const std::string& text) {
    std::string path = mTemp.file("host.ini");
    writeFile(path, text);
    return path;
}

::testing::AssertionResult ZnhostTest::startHost(const std::vector<std::string>& extra) {
    std::vector<std::string> argv = {ZNHOST_PATH, "--settings-dir", mSettingsDir, "--data-dir",
                                     mDataDir};
    argv.insert(argv.end(), extra.begin(), extra.end());
    if (!mHost.start(argv, mTemp.file("znhost.out"), mTemp.file("znhost.err")))
        return ::testing::AssertionFailure() << "znhost did not start";
    if (!waitForFileText(mTemp.file("znhost.out"), "ready\n", kStartBound))
        return ::testing::AssertionFailure() << "no \"ready\" from znhost; stdout:\n"
                                             << hostStdout() << "stderr:\n"
                                             << hostStderr();
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult ZnhostTest::startServing(const std::vector<std::string>& extra) {
    ::testing::AssertionResult started = startHost(extra);
    if (!started) return started;
    // The server thread listens shortly after "ready"; a probe connection that closes at once
    // ends its session on the server without a command.
    RawClient probe;
    if (!probe.connect(mPort, kStartBound))
        return ::testing::AssertionFailure() << "the command server never listened; stderr:\n"
                                             << hostStderr();
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult ZnhostTest::runHostToExit(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {ZNHOST_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    if (!mHost.start(argv, mTemp.file("znhost.out"), mTemp.file("znhost.err")))
        return ::testing::AssertionFailure() << "znhost did not start";
    if (!mHost.waitForExit(kExitBound))
        return ::testing::AssertionFailure() << "znhost did not exit on its own";
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult ZnhostTest::stopHost() {
    mHost.sendSignal(SIGTERM);
    if (!mHost.waitForExit(kExitBound))
        return ::testing::AssertionFailure() << "znhost did not exit after SIGTERM";
    return ::testing::AssertionSuccess();
}

std::string ZnhostTest::startClient(ChildProcess& client, const std::vector<std::string>& args,
                                    const std::string& input) {
    std::string prefix = mTemp.file("rcclient" + std::to_string(++mClientRuns));
    writeFile(prefix + ".in", input);
    std::vector<std::string> argv = {RCCLIENT_PATH, "--port", std::to_string(mPort)};
    argv.insert(argv.end(), args.begin(), args.end());
    EXPECT_TRUE(client.start(argv, prefix + ".out", prefix + ".err", prefix + ".in"));
    return prefix;
}

ClientRun ZnhostTest::finishClient(ChildProcess& client, const std::string& prefix) {
    ClientRun run;
    run.ended = client.waitForExit(kExitBound);
    client.kill();
    run.exitCode = client.exitCode();
    run.out = readFile(prefix + ".out");
    run.err = readFile(prefix + ".err");
    return run;
}

ClientRun ZnhostTest::runClient(const std::vector<std::string>& args, const std::string& input) {
    ChildProcess client;
    std::string prefix = startClient(client, args, input);
    return finishClient(client, prefix);
}

std::vector<std::string> ZnhostTest::traceLines() const {
    std::vector<std::string> traces;
    for (const std::string& line : splitLines(hostStderr()))
        if (line.compare(0, 7, "trace: ") == 0) traces.push_back(line);
    return traces;
}

}  // namespace apps_test
