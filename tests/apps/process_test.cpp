// znhost and rcclient as processes on loopback: refusals before anything runs, the stop signals, a
// port already taken, output nobody reads, clients that vanish or never read, and rcclient against
// a real znhost, in the clear and over TLS.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <filesystem>
#include <random>
#include <thread>

#include "apps/rcclient/commands.h"
#include "protocol/replies.h"
#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/raw_client.h"
#include "tests/support/row_name.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tls_client.h"

namespace {

using namespace testsupport;

struct Ended {
    int exitCode;
    std::string out, err;
};

// Every test gets its own folder and data/. znhost gets a free loopback port with --port, which
// overrides the settings file's port and keeps its other settings, here the listening address.
class ProcessTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(std::filesystem::create_directory(mTemp.file("data")));
        writeFile(mTemp.file("remotectrl.ini"), "[Settings]\nPort=1\nAddress=127.0.0.1\n");
    }

    // Starts rcclient on the test's port or znhost with the test's folders, then `args`, where "@"
    // at the start stands for the test's folder and "%" for the test PKI's; NAME.in is its input,
    // NAME.out/.err its output.
    void start(ChildProcess& process, const std::string& name, std::vector<std::string> args,
               const std::string& input = "") {
        for (std::string& arg : args) {
            if (arg[0] == '@') arg = mTemp.path() + arg.substr(1);
            if (arg[0] == '%') arg = pkiFile(arg.substr(1));
        }
        std::vector<std::string> program = {ZNHOST_PATH,          "--settings-dir",   mTemp.path(),
                                            "--data-dir",         mTemp.file("data"), "--port",
                                            std::to_string(mPort)};
        if (name == "rcclient") program = {RCCLIENT_PATH, "--port", std::to_string(mPort)};
        args.insert(args.begin(), program.begin(), program.end());
        writeFile(mTemp.file(name + ".in"), input);
        ASSERT_TRUE(process.start(args, mTemp.file(name + ".out"), mTemp.file(name + ".err"),
                                  mTemp.file(name + ".in")));
    }
    Ended finish(ChildProcess& process, const std::string& name) {
        EXPECT_TRUE(process.waitForExit(kExitBound)) << name << " did not end";
        process.kill();
        return {process.exitCode(), readFile(mTemp.file(name + ".out")),
                readFile(mTemp.file(name + ".err"))};
    }
    // Starts znhost as mHost and waits for its "ready", which means serving.
    void startServing(const std::vector<std::string>& args = {}) {
        ASSERT_NO_FATAL_FAILURE(start(mHost, "znhost", args));
        ASSERT_TRUE(waitForFileText(mTemp.file("znhost.out"), "ready\n", kStartBound));
    }
    bool hostLogged(const std::string& text) const {
        return waitForFileText(mTemp.file("znhost.err"), text, kReplyBound);
    }
    // The documented stop: "closed" last and status 0.
    void expectStops(ChildProcess& host, const std::string& name, int signal = SIGTERM,
                     std::string listening = "") {
        host.sendSignal(signal);
        Ended ended = finish(host, name);
        EXPECT_EQ(ended.exitCode, 0) << ended.err;
        if (listening.empty()) listening = "listening on 127.0.0.1:" + std::to_string(mPort) + "\n";
        EXPECT_EQ(ended.out, "loaded remotectrl: Plugin that adds tcp/ip interface\n" + listening +
                                 "ready\nclosed\n");
    }

    TempDir mTemp;
    ChildProcess mHost;
    const int mPort = freeLoopbackPort();
};

struct RefusalRow {
    const char* name;
    std::vector<std::string> args;
    int exitCode;
    const char* mentioned;  // in standard output or error
};

const RefusalRow kRefusals[] = {
    {"help", {"--help"}, 0, "Usage: znhost [--config FILE]"},
    {"unknown_option", {"--verbose"}, 2, "znhost: unknown option --verbose (see znhost --help)\n"},
    {"config_error", {"--config", "@/bad.ini"}, 2, "/bad.ini: [Device0] FrameWidth: \"wide\""},
    {"no_settings_folder", {"--settings-dir", "@/none"}, 2, "/none is not a folder"},
    {"no_data_folder", {"--data-dir", "@/none"}, 2, "znhost: data folder /"},
    {"plugin_missing", {"--plugin", PLUGIN_PATH, "--plugin", "@/none.so"}, 2, "/none.so: "},
    {"plugin_without_entry", {"--plugin", NO_ENTRY_MODULE_PATH}, 2, "exports no znGetPlugin"},
};

class RefusalTest : public ProcessTest, public ::testing::WithParamInterface<RefusalRow> {};

TEST_P(RefusalTest, ExitsBeforeAnythingRuns) {
    writeFile(mTemp.file("bad.ini"), "[Device0]\nFrameWidth=wide\n");
    ASSERT_NO_FATAL_FAILURE(start(mHost, "znhost", GetParam().args));
    Ended ended = finish(mHost, "znhost");
    EXPECT_EQ(ended.exitCode, GetParam().exitCode);
    EXPECT_NE((ended.out + ended.err).find(GetParam().mentioned), std::string::npos) << ended.err;
    EXPECT_TRUE(ended.exitCode == 0 || ended.out.empty()) << ended.out;
}

INSTANTIATE_TEST_SUITE_P(Rows, RefusalTest, ::testing::ValuesIn(kRefusals), RowName());

// A second znhost finds the port taken and says so; SIGINT stops it, and SIGTERM the first one in
// the middle of an acquisition, with its client connected.
TEST_F(ProcessTest, PortTakenIsLoggedAndStopSignalsEndCleanly) {
    ASSERT_NO_FATAL_FAILURE(startServing({"--trace"}));
    ChildProcess second;
    ASSERT_NO_FATAL_FAILURE(start(second, "second", {}));
    EXPECT_TRUE(waitForFileText(
        mTemp.file("second.err"),
        "[remotectrl] Could not start the remote server at port " + std::to_string(mPort) +
            ": bind 127.0.0.1:" + std::to_string(mPort) + ": Address already in use\n",
        kStartBound));
    ASSERT_TRUE(waitForFileText(mTemp.file("second.out"), "ready\n", kStartBound));
    expectStops(second, "second", SIGINT, "not listening: see the log\n");
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound) && client.sendLine("START(0,1,600,run.txt,10)"));
    ASSERT_TRUE(hostLogged("trace: sim0.runAcquisition(1, 600, 1, \"run.txt\")\n"));
    expectStops(mHost, "znhost");
    EXPECT_TRUE(client.waitForClose(kReplyBound));
}

// Standard output's reader is gone and standard error's never reads: znhost's lines then fail or
// wait, yet it serves on, drops the lines that do not fit and counts them once it can.
TEST_F(ProcessTest, ServesWithOutputClosedOrNeverRead) {
    int out[2], err[2];
    ASSERT_TRUE(pipe(out) == 0 && pipe(err) == 0 && fcntl(err[0], F_SETFL, O_NONBLOCK) == 0);
    close(out[0]);
    const std::string settings = mTemp.path(), port = std::to_string(mPort);
    ASSERT_TRUE(mHost.fork([&] {
        signal(SIGPIPE, SIG_DFL);
        return dup2(out[1], 1) + dup2(err[1], 2) +
               execl(ZNHOST_PATH, ZNHOST_PATH, "--trace", "--settings-dir", settings.c_str(),
                     "--port", port.c_str(), nullptr);
    }));
    close(out[1]);
    close(err[1]);
    RawClient client;
    std::string burst, reply, logged;  // each command four trace lines: more than a pipe holds
    for (int i = 0; i < 2000; ++i)
        burst += "GUI_ISRUNNING(0)\n";
    ASSERT_TRUE(client.connect(mPort, kStartBound) && client.sendText(burst));
    for (int i = 0; i < 2000; ++i)
        ASSERT_TRUE(client.readLine(reply, kReplyBound) && reply == "NO") << i;
    EXPECT_EQ(client.request("START(0,1,0,../x,10)"), "ERROR: ACQUISITION FAILED");
    char chunk[4096];
    for (int i = 0; i < 1000 && logged.find(" lines dropped\n") == std::string::npos; ++i) {
        const ssize_t got = read(err[0], chunk, sizeof chunk);
        logged.append(chunk, got > 0 ? static_cast<size_t>(got) : 0);
        if (got <= 0) std::this_thread::sleep_for(milliseconds(20));
    }
    close(err[0]);
    EXPECT_NE(logged.find(" output lines dropped\n"), std::string::npos) << "no count of them";
    mHost.sendSignal(SIGTERM);
    EXPECT_TRUE(mHost.waitForExit(kExitBound) && mHost.exitCode() == 0);
}

// znhost leaves SIGPIPE at its default action, so a reply sent to a client that has gone would end
// it unless the plug-in guards its sends itself.
TEST_F(ProcessTest, SurvivesClientsThatLeave) {
    ASSERT_NO_FATAL_FAILURE(startServing({"--trace"}));
    // Each reply is longer than its command, so the replies outgrow the socket buffers and the
    // server is still sending when this client, which never reads, goes.
    std::string burst;
    for (int i = 0; i < 5000; ++i)
        burst += "START()\n";
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kReplyBound) && client.sendText(burst));
    client.close();
    ASSERT_TRUE(client.connect(mPort, kReplyBound) && client.sendLine("START(0,1,600,,10)"));
    ASSERT_TRUE(hostLogged("trace: sim0.runAcquisition(1, 600, 1, \"\")\n"));
    client.abort();
    // The orphaned acquisition's final line goes to no one; the host log says so.
    ASSERT_TRUE(client.connect(mPort, kReplyBound) && client.sendLine("STOP()"));
    EXPECT_TRUE(hostLogged("[remotectrl] Acquisition on device 0 ended with " +
                           std::string(protocol::kErrorAcquisitionFailed) +
                           " after its client left\n"));
    EXPECT_EQ(client.request("GUI_ISRUNNING(5)"), protocol::kErrorDeviceIndex);
    expectStops(mHost, "znhost");
}

struct ClientRow {
    const char* name;
    std::vector<std::string> args;
    std::string out;
    int exitCode;
    const char* input = "";
    const char* errorPart = "";  // standard error must hold it
    bool busy = false;           // another client holds the session
    bool tlsServer = false;      // the port speaks TLS with the test PKI's server certificate
};

// rcclient with the test PKI's client identity, then `args`, which may replace any of it.
ClientRow tlsRow(const char* name, std::vector<std::string> args, const char* out, int exitCode,
                 const char* errorPart = "", bool tlsServer = true) {
    args.insert(args.begin(), {"--ca", "%ca.pem", "--cert", "%client.pem", "--key", "%client.key"});
    return {name, args, out, exitCode, "", errorPart, false, tlsServer};
}

const std::string kNoIndex = std::string(protocol::kErrorDeviceIndex) + "\n";
const std::string kSync = std::string(protocol::kSyncReply) + "\n";

// An "OK" means the acquisition wrote data/run.txt, 10 frames of 16 rows.
const ClientRow kClientRows[] = {
    {"answers", {"GUI_START(1)", "GUI_ISRUNNING(1)", "GUI_SETFILE(1,a)", "STOP()"}, "YES\n", 0},
    {"errors", {"GUI_STOP(2)", "GUI_SETFILE(0)", "GUI_ISRUNNING(0)"}, kNoIndex + kSync + "NO\n", 1},
    {"start_waits_for_its_final_line", {"START(0,10,0.01,run.txt,10)", ""}, "OK\n", 0},
    {"given_time_out", {"--timeout", "2", "START(0,10,0.3,run.txt,10)"}, "OK\n", 0},
    {"refused_start", {"START(0,100000,100,x,1000)"}, "ERROR: INVALID THL\n", 1},
    {"input_until_leave_word",
     {},
     rcclient::commandTable() + std::string("YES\n"),
     0,
     "GUI_START(1)\n\n help\n\t# GUI_STOP(1)\nGUI_ISRUNNING(1)\r\n Exit \nFOO()\n"},
    {"input_until_its_end", {}, kNoIndex + "NO\n", 1, "GUI_ISRUNNING(5)\nGUI_ISRUNNING(0)"},
    {"no_server", {"--port", "1", "GUI_ISRUNNING(0)"}, "", 2, "", "1: Connection refused"},
    {"usage_error", {"--port", "0"}, "", 2, "", "1 to 65535 (see rcclient --help)\n"},
    {"busy_server",
     {"--timeout", "0.5", "GUI_ISRUNNING(0)"},
     "",
     1,
     "",
     "no reply: the server",
     true},
    tlsRow("tls", {"GUI_SETFILE(0,a)", "START(0,10,0.01,run.txt,10)"}, "OK\n", 0),
    tlsRow("tls_missing_file", {"--ca", "@/none.pem"}, "", 2, "/none.pem: cannot open: No such"),
    tlsRow("tls_foreign_key", {"--key", "%stranger.key"}, "", 2, "key: does not match the cert"),
    tlsRow("tls_other_authority", {"--ca", "%other-ca.pem"}, "", 2, "not signed by the authority"),
    // 127.1 is 127.0.0.1 by a name the server's certificate does not hold.
    tlsRow("tls_other_host", {"-H", "127.1", "STOP()"}, "", 2, "certificate is not for 127.1 ("),
    tlsRow("tls_refused", {"--cert", "%other-client.pem", "--key", "%other-client.key", "STOP()"},
           "", 1, "the server refused the client certificate ("),
    tlsRow("tls_plain_server", {"-t", "1", "STOP()"}, "", 2, "does not speak TLS", false),
    {"tls_incomplete", {"--tls", "STOP()"}, "", 2, "", "TLS needs all of --ca, --cert and --key"},
};

class RcclientTest : public ProcessTest, public ::testing::WithParamInterface<ClientRow> {};

TEST_P(RcclientTest, PrintsRepliesInOrderAndExitsAccordingly) {
    if (GetParam().tlsServer)
        writeFile(mTemp.file("remotectrl.ini"),
                  "[Settings]\nAddress=127.0.0.1\nTlsCertificate=" + pkiFile("server.pem") +
                      "\nTlsKey=" + pkiFile("server.key") + "\nTlsClientCA=" + pkiFile("ca.pem"));
    ASSERT_NO_FATAL_FAILURE(startServing());
    RawClient holder;
    if (GetParam().busy) {  // it holds the session, so the server never reads rcclient's line
        ASSERT_TRUE(holder.connect(mPort, kReplyBound) &&
                    holder.request("GUI_ISRUNNING(0)") == "NO");
    }
    ChildProcess client;
    ASSERT_NO_FATAL_FAILURE(start(client, "rcclient", GetParam().args, GetParam().input));
    Ended ended = finish(client, "rcclient");
    EXPECT_EQ(ended.exitCode, GetParam().exitCode) << ended.err;
    EXPECT_TRUE(ended.exitCode != 0 || ended.err.empty()) << "no progress without a terminal";
    EXPECT_EQ(ended.out, GetParam().out);
    EXPECT_NE(ended.err.find(GetParam().errorPart), std::string::npos) << ended.err;
    EXPECT_EQ(splitLines(readFile(mTemp.file("data/run.txt"))).size(),
              ended.out == "OK\n" ? 160u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Rows, RcclientTest, ::testing::ValuesIn(kClientRows), RowName());

class RcclientSignalTest : public ProcessTest, public ::testing::WithParamInterface<int> {};

// Each stop signal ends rcclient as the signal would, but during a START only once STOP() has
// gone out and the final line has come.
TEST_P(RcclientSignalTest, DuringStartSendsStopAndWaitsForTheFinalLine) {
    ASSERT_NO_FATAL_FAILURE(startServing({"--trace"}));
    ChildProcess client;
    ASSERT_NO_FATAL_FAILURE(start(client, "rcclient", {"START(0,1,600,,10)"}));
    ASSERT_TRUE(hostLogged("trace: sim0.runAcquisition(1, 600, 1, \"\")\n"));
    client.sendSignal(GetParam());
    Ended ended = finish(client, "rcclient");
    EXPECT_EQ(ended.out, "ERROR: ACQUISITION FAILED\n");
    EXPECT_EQ(ended.exitCode, 128 + GetParam());
    EXPECT_NE(ended.err.find("interrupted, sending STOP()"), std::string::npos) << ended.err;
}

INSTANTIATE_TEST_SUITE_P(Signals, RcclientSignalTest, ::testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& info) { return std::string(sigabbrev_np(info.param)); });

// rcclient on a pseudo-terminal as a shell starts it: the terminal is its controlling one, on
// standard input and error; standard output goes to a file.
class Terminal {
public:
    ~Terminal() {
        if (mMaster >= 0) close(mMaster);
    }
    bool start(ChildProcess& child, std::vector<std::string> argv, const std::string& outPath) {
        winsize size = {24, 80, 0, 0};
        int slave = -1;
        termios mode;  // no flush at Ctrl-C, which could drop the prompt written in answer to it
        if (openpty(&mMaster, &slave, nullptr, nullptr, &size) != 0 || tcgetattr(slave, &mode) != 0)
            return false;
        mode.c_lflag |= NOFLSH;
        tcsetattr(slave, TCSANOW, &mode);
        const int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        argv.insert(argv.begin(), {"/usr/bin/env", "TERM=xterm"});  // whatever the runner has
        std::vector<char*> args;
        for (std::string& arg : argv)
            args.push_back(arg.data());
        args.push_back(nullptr);
        sigset_t none;
        sigemptyset(&none);
        const bool started = child.fork([&] {
            const bool ready = close(mMaster) == 0 && setsid() >= 0 &&
                               ioctl(slave, TIOCSCTTY, 0) == 0 && dup2(slave, 0) == 0 &&
                               dup2(out, 1) == 1 && dup2(slave, 2) == 2 &&
                               sigprocmask(SIG_SETMASK, &none, nullptr) == 0;
            return ready ? execv(args[0], args.data()) : 1;
        });
        close(slave);
        close(out);
        return started;
    }
    bool type(const std::string& keys) {
        return write(mMaster, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size());
    }
    // Reads the screen until `text` shows after what earlier calls took.
    bool shows(const std::string& text) {
        const auto deadline = std::chrono::steady_clock::now() + kReplyBound;
        size_t found;
        while ((found = mScreen.find(text)) == std::string::npos) {
            pollfd ready = {mMaster, POLLIN, 0};
            char chunk[512];
            const auto left = std::chrono::duration_cast<milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0)
                return false;
            const ssize_t got = read(mMaster, chunk, sizeof chunk);
            if (got <= 0) return false;
            mScreen.append(chunk, static_cast<size_t>(got));
        }
        mScreen.erase(0, found + text.size());
        return true;
    }

    // The prompt shows, and the line editor has the terminal, reading key by key.
    bool prompts() {
        termios mode;
        const auto deadline = std::chrono::steady_clock::now() + kReplyBound;
        if (!shows("rcclient> ")) return false;
        while (tcgetattr(mMaster, &mode) == 0 && (mode.c_lflag & ICANON) != 0 &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(milliseconds(10));
        return (mode.c_lflag & ICANON) == 0;
    }

private:
    int mMaster = -1;
    std::string mScreen;
};

// At a terminal Ctrl-C drops the line being typed, and stops a START, each time back at the
// prompt; Up recalls the last line; Ctrl-D leaves on a line of its own.
TEST_F(ProcessTest, RcclientPromptEditsAndRecallsLinesAndCtrlCReturnsToIt) {
    ASSERT_NO_FATAL_FAILURE(startServing({"--trace"}));
    const std::string out = mTemp.file("rcclient.out"), no = "NO\n";
    const std::string failed = std::string(protocol::kErrorAcquisitionFailed) + "\n";
    ChildProcess client;
    Terminal terminal;
    ASSERT_TRUE(terminal.start(client, {RCCLIENT_PATH, "-p", std::to_string(mPort)}, out));
    ASSERT_TRUE(terminal.prompts() && terminal.type("GUI_ISR") && terminal.shows("GUI_ISR"));
    ASSERT_TRUE(terminal.type("\x03") && terminal.prompts());
    ASSERT_TRUE(terminal.type("GUI_ISRUNNING(0)\r") && waitForFileText(out, no, kReplyBound));
    ASSERT_TRUE(terminal.prompts() && terminal.type("\x1b[A\r"));
    ASSERT_TRUE(waitForFileText(out, no + no, kReplyBound) && terminal.prompts());
    ASSERT_TRUE(terminal.type("START(0,1,600,,10)\r"));
    ASSERT_TRUE(hostLogged("trace: sim0.runAcquisition(1, 600, 1, \"\")\n"));
    ASSERT_TRUE(terminal.type("\x03") && waitForFileText(out, no + no + failed, kReplyBound));
    ASSERT_TRUE(terminal.prompts() && terminal.type("\x04") && terminal.shows("\n"));
    EXPECT_TRUE(client.waitForExit(kExitBound));
    EXPECT_EQ(client.exitCode(), 1);
}

// STOP in its own write 0-400 us after START with a file: the simulated device registers its run
// only once its file is open and drops an abort that comes before, yet every STOP ends the run.
// A lost STOP shows as a reply that waits for the whole 30 s run.
TEST_F(ProcessTest, AStopRightAfterStartAlwaysEndsTheRun) {
    constexpr milliseconds kStopAnswerBound{1500};  // three times the 0.5 s users are promised
    startServing();
    RawClient client;
    ASSERT_TRUE(client.connect(mPort, kStartBound));
    const int noDelay = 1;  // each write its own segment, at once
    setsockopt(client.descriptor(), IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
    std::mt19937 random(22);
    for (int round = 0; round < 1000; ++round) {
        ASSERT_TRUE(client.sendText("START(0,1,30,race.txt,10)\n"));
        const auto stopAt =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 401);
        while (std::chrono::steady_clock::now() < stopAt) {
        }
        ASSERT_TRUE(client.sendText("STOP()\n"));
        std::string reply;
        ASSERT_TRUE(client.readLine(reply, kStopAnswerBound)) << "round " << round;
        ASSERT_EQ(reply, protocol::kErrorAcquisitionFailed) << "round " << round;
    }
}

}  // namespace
