// znhost's pieces in-process: the config file, both programs' command lines, trace text, data
// paths, the simulated devices, devcontrol and host core, and the plug-in module loaded into that
// host and unloaded again.
#include <dlfcn.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <future>
#include <sstream>
#include <thread>

#include "apps/rcclient/connect.h"
#include "apps/rcclient/options.h"
#include "apps/znhost/datapath.h"
#include "apps/znhost/listeners.h"
#include "apps/znhost/options.h"
#include "apps/znhost/pluginloader.h"
#include "apps/znhost/portsettings.h"
#include "apps/znhost/simhost.h"
#include "apps/znhost/standardfds.h"
#include "host/ptrlist.h"
#include "net/sockets.h"
#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/raw_client.h"
#include "tests/support/row_name.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace testsupport;
using namespace znhost;

const Tracer kQuiet(false, -1);

// The whole config in one line, or "error: " and the message without the file name.
std::string loaded(const char* text) {
    TempDir temp;
    const std::string path = temp.file("host.ini");
    writeFile(path, text);
    HostConfig config;
    std::string error;
    if (!loadHostConfig(path, config, error)) return "error: " + error.substr(path.size() + 2);
    std::ostringstream out;
    out << "devcontrol " << config.devControl.loaded << config.devControl.privateInterface;
    for (const DeviceConfig& d : config.devices)
        out << " | " << d.name << " " << d.filtered << " " << d.thresholdMin << " "
            << d.thresholdMax << " " << d.reportRange << " " << d.setThresholdResult << " "
            << d.acqResult << " " << d.abortResult << " " << d.frameWidth << "x" << d.frameHeight;
    return out.str();
}

// Rows give the input and the start of the expected text.
struct ConfigRow {
    const char* name;
    const char* text;
    const char* expected;
};

const ConfigRow kConfigRows[] = {
    {"every_key_and_defaults",
     "[DevControl]\r\nPrivateInterface=0\r\n[Device1]\n[Device0]\nName= det \nFiltered=false\n"
     "ThresholdMin=-1.5\nThresholdMax=2e3\nReportRange=0\nSetThresholdResult=-7\nAcqResult=3\n"
     "AbortResult=0\nFrameWidth=1\nFrameHeight=4096\n",
     "devcontrol 10 | det 0 -1.5 2000 0 -7 3 0 1x4096 | sim1 1 0 100 1 0 0 -1 16x16"},
    {"no_device_section", "[DevControl]\nLoaded=false\n", "devcontrol 01"},
    {"same_name_twice", "[Device0]\nName=a\n[Device1]\nName=a\n", "error: [Device1] Name: \"a\""},
    {"unknown_section", "[device0]\n", "error: [device0]: unknown section"},
    {"numbering_gap", "[Device0]\n[Device2]\n", "error: [Device2]: devices are numbered from 0"},
};

class ConfigTest : public ::testing::TestWithParam<ConfigRow> {};

TEST_P(ConfigTest, LoadsOrNamesTheFault) {
    EXPECT_EQ(loaded(GetParam().text).substr(0, strlen(GetParam().expected)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Rows, ConfigTest, ::testing::ValuesIn(kConfigRows), RowName());

struct OptionRow {
    const char* name;
    bool client;
    std::vector<const char*> args;
    const char* expected;  // the parse result as parsed() writes it, or the error
};

// A command line's parse result in one line, or "error: " and the message.
std::string parsed(const OptionRow& row) {
    std::vector<const char*> argv = row.args;
    argv.insert(argv.begin(), "program");
    const int argc = static_cast<int>(argv.size());
    rcclient::ClientOptions c;
    Options h;
    std::string error;
    if (row.client ? !rcclient::parseClientOptions(argc, argv.data(), c, error)
                   : !parseOptions(argc, argv.data(), h, error))
        return "error: " + error;
    std::ostringstream out;
    if (row.client) out << c.host << ":" << c.port << " " << c.timeout << c.timeoutGiven;
    if (!row.client)
        out << h.configFile << "|" << h.settingsDir << "|" << h.dataDir << "|" << h.port << h.trace;
    out << (row.client ? c.help : h.help) << (row.client ? c.version : h.version);
    for (const std::string& word : row.client ? c.commands : h.plugins)
        out << " " << word;
    return out.str();
}

const OptionRow kOptionRows[] = {
    {"host_defaults", false, {}, "|.|.|0000"},
    {"host_values", false, {"--config", "h", "--settings-dir=s", "--port=65535"}, "h|s|.|65535000"},
    {"host_flags",
     false,
     {"--trace", "--plugin", "a", "--plugin=b", "--version", "-h"},
     "|.|.|0111 a b"},
    {"host_unknown_option", false, {"--verbose", "1"}, "error: unknown option --verbose"},
    {"host_port_not_digits", false, {"--port", "+80"}, "error: --port needs a number from 1 to"},
    {"host_missing_value", false, {"--plugin"}, "error: option --plugin needs a value"},
    {"host_empty_value", false, {"--data-dir="}, "error: option --data-dir needs a non-empty"},
    {"host_value_on_flag", false, {"--trace=1"}, "error: option --trace takes no value"},
    {"client_defaults", true, {"GUI_START(0)"}, "127.0.0.1:59876 5000 GUI_START(0)"},
    {"client_values", true, {"--host", "h", "--port=65535", "--timeout", "0.5"}, "h:65535 0.5100"},
    {"client_flags", true, {"--help", "--version", "--", "--x", "-"}, "127.0.0.1:59876 5011 --x -"},
    {"client_short_help", true, {"-h"}, "127.0.0.1:59876 5010"},
    {"client_short_options", true, {"-H", "h", "-p65535", "-t", "0.5"}, "h:65535 0.5100"},
    {"client_after_quit", true, {"QUIT()", "", "A()"}, "error: commands after QUIT() would never"},
    {"client_unknown_option", true, {"--verbose"}, "error: unknown option --verbose"},
    {"client_port_zero", true, {"--port", "0"}, "error: --port needs a number from 1 to 65535"},
    {"client_timeout_zero", true, {"--timeout", "0"}, "error: --timeout needs a positive number"},
    {"client_missing_value", true, {"--host"}, "error: option --host needs a value"},
    {"client_line_break", true, {"A()\nB()"}, "error: a command must not hold a line break"},
};

class OptionTest : public ::testing::TestWithParam<OptionRow> {};

TEST_P(OptionTest, ParsesOrNamesTheFault) {
    EXPECT_EQ(parsed(GetParam()).substr(0, strlen(GetParam().expected)), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Rows, OptionTest, ::testing::ValuesIn(kOptionRows), RowName());

// The user's lines stay as written (a byte-order mark included), the port is added after them;
// a user's file that cannot be read, or a folder that cannot be made, is named.
TEST(PortSettings, AddsThePortAfterTheUsersLinesOrNamesTheFault) {
    TempDir temp;
    const std::string user = "\xEF\xBB\xBF[Settings]\nPort=1\nAllowFrom=127.0.0.1";
    writeFile(temp.file("remotectrl.ini"), user);
    PortSettings settings;
    std::string error;
    ASSERT_TRUE(settings.create(temp.path(), 80, error)) << error;
    EXPECT_EQ(readFile(settings.dir() + "/remotectrl.ini"), user + "\n[Settings]\nPort=80\n");
    EXPECT_FALSE(PortSettings().create(temp.path(), 80, error, temp.file("none")));
    EXPECT_EQ(error, "cannot create a settings folder in " + temp.file("none") +
                         ": No such file or directory");
    std::filesystem::create_directories(temp.file("dir/remotectrl.ini"));
    EXPECT_FALSE(PortSettings().create(temp.file("dir"), 80, error));
    EXPECT_EQ(error, temp.file("dir/remotectrl.ini") + ": not a regular file");
}

// As a careless parent may start znhost: standard output and error closed.
TEST(StandardDescriptors, ClosedOnesGetDevNullSoNoSocketTakesTheirNumber) {
    ChildProcess child;
    ASSERT_TRUE(child.fork([] {
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
        struct stat devNull, err;
        const bool opened = openClosedStandardDescriptors() && stat("/dev/null", &devNull) == 0 &&
                            fstat(STDERR_FILENO, &err) == 0 && err.st_rdev == devNull.st_rdev;
        return opened && socket(AF_INET, SOCK_STREAM, 0) > STDERR_FILENO ? 0 : 1;
    }));
    ASSERT_TRUE(child.waitForExit(kExitBound));
    EXPECT_EQ(child.exitCode(), 0);
}

TEST(RcclientConnect, NamesAHostThatDoesNotResolve) {
    TCPSocket socket;
    std::string error;
    auto lookUp = [](const std::string&, std::string&) { return false; };
    EXPECT_FALSE(rcclient::connectToServer(socket, "nowhere", 1, 1, error, lookUp));
    EXPECT_EQ(error, "cannot resolve nowhere");
}

// A command and its sync line must not wait for the server's delayed acknowledgement.
TEST(RcclientConnect, SendsEachWriteAtOnce) {
    TCPServerSocket server;
    ASSERT_EQ(server.startServer("127.0.0.1", 0, 1), 0);
    TCPSocket socket;
    std::string error;
    ASSERT_TRUE(rcclient::connectToServer(socket, "127.0.0.1", server.getLocalPort(), 1, error));
    int noDelay = 0;
    socklen_t size = sizeof noDelay;
    ASSERT_EQ(getsockopt(socket.getDescriptor(), IPPROTO_TCP, TCP_NODELAY, &noDelay, &size), 0);
    EXPECT_NE(noDelay, 0);
}

TEST(DataPath, OnlyRelativeNamesWithoutDotDotComponentsAreSafe) {
    for (const char* file : {"run.txt", "./a..b//...//..c"})
        EXPECT_TRUE(isSafeDataPath(file)) << file;
    for (const char* file : {"", "/tmp/run.txt", "../run.txt", "a//../b", "sub/.."})
        EXPECT_FALSE(isSafeDataPath(file)) << file;
}

TEST(Listeners, WaitsForALateListenOfThisProcess) {
    const int port = freeLoopbackPort();
    TCPServerSocket server;
    std::thread late([&] {
        std::this_thread::sleep_for(milliseconds(300));
        server.startServer("127.0.0.1", static_cast<unsigned short>(port), 1);
    });
    const std::vector<std::string> seen = waitForListeners(
        1, [] { return false; }, kReplyBound);
    late.join();
    EXPECT_EQ(seen, std::vector<std::string>{"127.0.0.1:" + std::to_string(port)});
}

// Name, filtered, threshold range and whether it is reported, the results of setting the
// threshold, of an acquisition and of an aborted one, and 3 x 2 frames.
DeviceConfig smallDevice(int acqResult = 0) {
    return {"det", true, 0, 100, true, 0, acqResult, -4, 3, 2};
}

// What stands in the data folder before the acquisition.
enum class Folder { Plain, FullDisk, LinkOut, Fifo };

// One acquisition on a device of 3 x 2 frames; `rows` is the file's line count, -1 for no file.
struct AcquisitionRow {
    const char* name;
    int acqResult, count;
    double time;
    const char* file;
    int result, rows;
    Folder folder = Folder::Plain;
};

const AcquisitionRow kAcquisitionRows[] = {
    {"frames_written", 0, 2, 0.001, "run.txt", 0, 4},
    {"result_from_config", 5, 1, 0, "run.txt", 5, 2},
    {"zero_frames_empty_file", 0, 0, 1, "run.txt", 0, 0},
    {"empty_name_no_file", 0, 1, 0, "", 0, -1},
    {"negative_count", 0, -1, 0, "run.txt", -1, -1},
    {"negative_time", 0, 1, -0.5, "run.txt", -1, -1},
    {"name_leaving_the_folder", 0, 1, 0, "../run.txt", -1, -1},
    {"file_too_large", 0, 2000000000, 0, "run.txt", -1, -1},
    {"missing_subfolder", 0, 1, 0, "no/run.txt", -1, -1},
    {"disk_full", 0, 1000, 0, "run.txt", -1, -1, Folder::FullDisk},
    {"link_out_of_the_folder", 0, 1, 0, "out/run.txt", -1, -1, Folder::LinkOut},
    {"fifo_refused_at_once", 0, 1, 600, "fifo", -1, -1, Folder::Fifo},
};

class AcquisitionTest : public ::testing::TestWithParam<AcquisitionRow> {};

// Each row runs twice, so that a second acquisition must replace the file rather than extend it.
// Nothing but the expected file may remain in the folder: no partial or temporary file.
TEST_P(AcquisitionTest, ResultAndFile) {
    const AcquisitionRow& row = GetParam();
    TempDir temp;
    const std::string data = temp.file("data");
    ASSERT_TRUE(std::filesystem::create_directory(data));
    if (row.folder == Folder::FullDisk && mount("tmpfs", data.c_str(), "tmpfs", 0, "size=4k") != 0)
        GTEST_SKIP() << "cannot mount a small tmpfs here (" << strerror(errno) << ")";
    if (row.folder == Folder::LinkOut)
        std::filesystem::create_directory_symlink("..", data + "/out");
    if (row.folder == Folder::Fifo) {
        ASSERT_EQ(mkfifo((data + "/fifo").c_str(), 0600), 0);
    }
    SimDevice device(smallDevice(row.acqResult), data, kQuiet);
    for (int run = 0; run < 2; ++run)
        EXPECT_EQ(device.runAcquisition(row.count, row.time, 1, row.file), row.result);
    const std::vector<std::string> lines = splitLines(readFile(data + "/run.txt"));
    EXPECT_EQ(fileExists(data + "/run.txt") ? static_cast<int>(lines.size()) : -1, row.rows);
    EXPECT_EQ(entryCount(data), (row.rows >= 0) + (row.folder > Folder::FullDisk));  // link, FIFO
    EXPECT_FALSE(fileExists(temp.file("run.txt")));
    for (const std::string& line : lines)
        EXPECT_EQ(std::count(line.begin(), line.end(), ' '), 2) << line;
    if (row.folder == Folder::FullDisk) umount2(data.c_str(), MNT_DETACH);
}

INSTANTIATE_TEST_SUITE_P(Rows, AcquisitionTest, ::testing::ValuesIn(kAcquisitionRows), RowName());

// Runs an acquisition on another thread and waits (bounded) until it is under way.
std::future<int> startAcquisition(SimDevice& device, int count, double time, const char* file) {
    std::future<int> result = std::async(std::launch::async, [&device, count, time, file] {
        return device.runAcquisition(count, time, 1, file);
    });
    for (int i = 0; i < 2000 && !device.acquiring(); ++i)
        std::this_thread::sleep_for(milliseconds(10));
    EXPECT_TRUE(device.acquiring());
    return result;
}

TEST(SimDevice, AbortAndShutDownKeepWholeFramesOnly) {
    TempDir temp;
    SimDevice device(smallDevice(), temp.path(), kQuiet);
    EXPECT_EQ(device.abortAcquisition(), -1) << "nothing runs";
    std::future<int> result = startAcquisition(device, 1000000, 0.001, "part.txt");
    EXPECT_EQ(device.runAcquisition(1, 0, 1, "busy.txt"), -1);
    std::this_thread::sleep_for(milliseconds(50));  // a few 1 ms frames
    EXPECT_EQ(device.abortAcquisition(), 0);
    ASSERT_EQ(result.wait_for(kReplyBound), std::future_status::ready);
    EXPECT_EQ(result.get(), -4);
    const size_t rows = splitLines(readFile(temp.file("part.txt"))).size();
    EXPECT_TRUE(rows > 0 && rows < 2000000 && rows % 2 == 0) << rows << " rows";
    EXPECT_FALSE(fileExists(temp.file("busy.txt")));
    result = startAcquisition(device, 1, 600, "none.txt");
    ASSERT_TRUE(device.shutDown(kReplyBound));
    EXPECT_EQ(result.get(), -4);
    EXPECT_FALSE(fileExists(temp.file("none.txt"))) << "no frame was complete";
    DeviceConfig big = smallDevice();  // 50 frames of 1000 x 1000: seconds of writing
    big.frameWidth = big.frameHeight = 1000;
    SimDevice large(big, temp.path(), kQuiet);
    result = startAcquisition(large, 50, 0, "big.txt");
    ASSERT_TRUE(large.shutDown(kExitBound));
    EXPECT_EQ(result.get(), -4);
    const size_t bigRows = splitLines(readFile(temp.file("big.txt"))).size();
    EXPECT_TRUE(bigRows % 1000 == 0 && bigRows < 50000) << bigRows << " rows";
}

// With tracing on, every call is one line, its arguments as passed (file names quoted and escaped,
// doubles in their shortest form); a threshold in range is kept.
TEST(SimDevice, TracesCallsAndKeepsAcceptedThresholds) {
    TempDir temp;
    FILE* out = std::fopen(temp.file("trace").c_str(), "w");
    ASSERT_NE(out, nullptr);
    const Tracer tracer(true, fileno(out));  // the device keeps a reference
    SimDevice traced(smallDevice(), temp.path(), tracer);
    double range[2] = {-1, -1};
    EXPECT_EQ(traced.runAcquisition(0, 0.5, 1, "a\"b\\c\x01\x1f ~\x7f\xff"), 0);
    EXPECT_EQ(traced.setThreshold(0, 2, 0.1 + 0.2) + traced.thresholdRange(0, 2, range, range + 1),
              0);
    std::fclose(out);
    EXPECT_EQ(std::vector<double>({range[0], range[1], traced.threshold()}),
              std::vector<double>({0, 100, 0.1 + 0.2}));
    EXPECT_EQ(readFile(temp.file("trace")),
              "trace: det.runAcquisition(0, 0.5, 1, \"a\\\"b\\\\c\\x01\\x1f ~\\x7f\\xff\")\n"
              "trace: det.setThreshold(0, 2, 0.30000000000000004)\n"
              "trace: det.thresholdRange(0, 2)\n");
}

TEST(SimHost, ListsDevicesAndServesDevControl) {
    HostConfig config = defaultHostConfig();
    config.devices[0].filtered = false;
    SimHost host(config, "/a/b//", ".", kQuiet);
    EXPECT_STREQ(host.configDir(), "/a/b");
    EXPECT_STREQ(SimHost(config, "/", ".", kQuiet).configDir(), "");
    zn::PtrList<zn::IDev*> all, filtered, unknownFilter;
    host.listDevices(&all);
    host.listDevicesFiltered(&filtered, 1);
    host.listDevicesFiltered(&unknownFilter, 0);
    ASSERT_EQ((std::vector<unsigned>{all.size(), filtered.size(), unknownFilter.size()}),
              (std::vector<unsigned>{2, 1, 0}));
    EXPECT_EQ(filtered.get(0), all.get(1));
    auto* control =
        static_cast<zn::IDevControl*>(host.findPlugin("devcontrol")->privateInterface());
    zn::IDev* device = all.get(1);
    SimDevice stranger(smallDevice(), ".", kQuiet);
    // Each call on one of the host's devices gives 0, on any other pointer -1.
    EXPECT_EQ(control->start(device) + control->start(&stranger), -1);
    EXPECT_TRUE(control->isRunning(device) && !control->isRunning(all.get(0)));
    EXPECT_EQ(control->stop(device) + control->stop(&stranger), -1);
    EXPECT_FALSE(control->isRunning(device) || control->isRunning(&stranger));
    EXPECT_EQ(control->setFile(device, "x.txt", 1) + control->setFile(&stranger, "y", 1), -1);
    EXPECT_EQ(host.devControl().fileOf(device), "x.txt");
    EXPECT_EQ(all.erase(2) + all.erase(0), -1);  // past the end, then the first
    EXPECT_EQ(all.size() == 1 ? all.get(0) : nullptr, device);
    config.devControl.privateInterface = false;
    EXPECT_EQ(SimHost(config, ".", ".", kQuiet).findPlugin("devcontrol")->privateInterface(),
              nullptr);
    config.devControl.loaded = false;
    EXPECT_EQ(SimHost(config, ".", ".", kQuiet).findPlugin("devcontrol"), nullptr);
}

enum class AtClose { InAccept, IdleClient, RunningAcquisition, ClientWaiting };

// One cycle as a host that unloads modules runs it: load, initialize, bring the plug-in into
// `state`, onClose, unload. The host may unload the code as soon as onClose returns, so nothing of
// the module may run on after it.
void loadAndUnload(AtClose state) {
    TempDir settings;
    const int port = freeLoopbackPort();
    writeFile(settings.file("remotectrl.ini"), "[Settings]\nPort=" + std::to_string(port) + "\n");
    SimHost host(defaultHostConfig(), settings.path(), settings.path(), kQuiet);
    LoadedPlugin loaded;
    std::string error;
    ASSERT_TRUE(loadPlugin(PLUGIN_PATH, loaded, error)) << error;
    EXPECT_EQ(loaded.plugin->initialize(&host), 0);
    RawClient first, waiting;
    ASSERT_TRUE(first.connect(port, kReplyBound));
    ASSERT_EQ(first.request("GUI_ISRUNNING(0)"), "NO");
    if (state == AtClose::InAccept) {
        ASSERT_TRUE(first.sendLine("QUIT()") && first.waitForClose(kReplyBound));
    }
    if (state == AtClose::RunningAcquisition) {
        ASSERT_TRUE(first.sendLine("START(0,1,600,,10)"));
        for (int i = 0; i < 1000 && !host.devices()[0]->acquiring(); ++i)
            std::this_thread::sleep_for(milliseconds(10));
        ASSERT_TRUE(host.devices()[0]->acquiring());
    }
    if (state == AtClose::ClientWaiting) {
        ASSERT_TRUE(waiting.connect(port, kReplyBound) && waiting.sendLine("GUI_ISRUNNING(0)"));
    }
    loaded.plugin->onClose();
    EXPECT_FALSE(host.devices()[0]->acquiring()) << "onClose left the acquisition running";
    EXPECT_TRUE(first.waitForClose(kReplyBound)) << "the session outlived onClose";
    std::string line;
    EXPECT_FALSE(waiting.readLine(line, milliseconds(100))) << "a waiting client was served";
    EXPECT_EQ(dlclose(loaded.module), 0) << dlerror();
    // Still loaded, the next cycle would get the same, already closed, plug-in object.
    void* lingering = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_EQ(lingering, nullptr) << "the module stayed loaded";
    if (lingering != nullptr) dlclose(lingering);
}

// The module exports its entry function and nothing else, so none of its symbols can clash with
// the host's.
// The words a shell command prints, in order, each followed by a blank; `format` picks the word
// out of a line for fscanf.
std::string wordsPrinted(const std::string& command, const char* format) {
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return "<cannot run " + command + ">";
    std::string words;
    for (char word[400]; std::fscanf(pipe, format, word) == 1;)
        words += std::string(word) + " ";
    pclose(pipe);
    return words;
}

// OpenSSL is linked in and hidden, so a host that loads another OpenSSL can neither take the
// module's calls nor hand its own to the module.
TEST(ModuleUnload, OnlyTheEntryFunctionIsExportedAndOpenSslIsTheModulesOwn) {
    const std::string module = PLUGIN_PATH;
    EXPECT_EQ(wordsPrinted("nm -D --defined-only " + module, "%*s %*s %399s"), "znGetPlugin ");
    const std::string needed = wordsPrinted("objdump -p " + module + " | grep NEEDED", "%*s %399s");
    EXPECT_NE(needed.find("libc.so"), std::string::npos) << needed;
    EXPECT_EQ(needed.find("libssl"), std::string::npos) << needed;
    EXPECT_EQ(needed.find("libcrypto"), std::string::npos) << needed;
}

TEST(ModuleUnload, EveryCycleEndsWithTheThreadsItBeganWith) {
    loadAndUnload(AtClose::IdleClient);  // sanitizer runtimes start threads of their own at first
    const long before = entryCount("/proc/self/task");
    for (int round = 0; round < 3; ++round) {
        for (AtClose state : {AtClose::InAccept, AtClose::IdleClient, AtClose::RunningAcquisition,
                              AtClose::ClientWaiting}) {
            loadAndUnload(state);
            EXPECT_EQ(entryCount("/proc/self/task"), before)
                << "round " << round << ", " << static_cast<int>(state);
        }
    }
}

}  // namespace
