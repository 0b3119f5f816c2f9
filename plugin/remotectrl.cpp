// The remote-control plug-in, in the order a request travels: life cycle, server loop, session,
// parser, dispatch, GUI commands, acquisition thread. Thread ownership is described in
// remotectrl.h.
#include "plugin/remotectrl.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <string_view>

#include "host/ptrlist.h"
#include "net/sockets.h"
#include "protocol/command_language.h"
#include "protocol/replies.h"
#include "settings/inifile.h"
#include "settings/str.h"

namespace PluginRemoteCtrl {

const char* RemoteCtrl::PLUGIN_NAME = "remotectrl";
const char* RemoteCtrl::PLUGIN_DESC = "Plugin that adds tcp/ip interface";

namespace {

constexpr int kListenBacklog = 5;
constexpr double kLineTimeout = 1.0;
constexpr double kReplyTimeout = 1.0;
constexpr useconds_t kStopPollMicros = 100000;
constexpr useconds_t kAcceptRetryMicros = 50000;
constexpr const char* kSettingsFile = "remotectrl.ini";
constexpr const char* kDevControlName = "devcontrol";

double secondsNow() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now.tv_sec + now.tv_usec / 1000000.0;
}

pid_t currentThreadId() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

// The kernel drops a thread's /proc entry when the thread exits. An id of 0 was never set.
bool threadHasExited(pid_t tid) {
    if (tid == 0) return true;
    std::string path = "/proc/self/task/" + std::to_string(tid);
    return access(path.c_str(), F_OK) != 0;
}

class ThreadWrapper {
public:
    ThreadWrapper(void (*function)(void*), void* argument)
        : function(function), argument(argument) {}

    static void* func(void* record) {
        if (record == nullptr) return nullptr;
        auto* wrapper = static_cast<ThreadWrapper*>(record);
        wrapper->function(wrapper->argument);
        delete wrapper;
        return nullptr;
    }

    void (*function)(void*);
    void* argument;
};

}  // namespace

int createThread(void (*func)(void*), void* arg) {
    auto* record = new ThreadWrapper(func, arg);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    int rc = pthread_create(&thread, &attributes, &ThreadWrapper::func, record);
    pthread_attr_destroy(&attributes);
    if (rc != 0) {
        delete record;
        return -1;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------------
// Life cycle

RemoteCtrl::RemoteCtrl() : mServer(new TCPServerSocket()) {}

RemoteCtrl::~RemoteCtrl() {
    delete mServer;
}

std::int32_t RemoteCtrl::initialize(zn::IZenthi* host) {
    // One cycle per object: after onClose the listening socket is gone for good.
    if (mInitialized || mStopServer) return 0;
    mInitialized = true;
    mHost = host;
    loadSettings();
    createThread(&RemoteCtrl::threadWrapper, this);
    return 0;
}

void RemoteCtrl::onStart() {}

void RemoteCtrl::onClose() {
    stopServer(1.0);
}

const char* RemoteCtrl::name() const {
    return PLUGIN_NAME;
}

const char* RemoteCtrl::description() const {
    return PLUGIN_DESC;
}

void* RemoteCtrl::privateInterface() {
    return nullptr;
}

void RemoteCtrl::loadSettings() {
    // A host without a settings directory leaves the default port.
    const char* dir = mHost ? mHost->configDir() : nullptr;
    if (dir == nullptr) return;
    std::string path = std::string(dir) + "/" + kSettingsFile;
    IniFile settings(path.c_str(), "=");
    settings.load(nullptr);
    mPort = settings.getInt("Settings", "Port", mPort);
}

void RemoteCtrl::stopServer(double timeout) {
    mStopServer = true;
    // shutdown() rather than close(): it makes a pending accept() and a pending read return at
    // once, while the descriptors stay valid for the threads still using them.
    if (mServer) mServer->shutdownBoth();
    {
        std::lock_guard<std::mutex> lock(mClientMutex);
        if (mClient) mClient->shutdownBoth();
    }
    abortRunningAcquisition();

    double start = secondsNow();
    if (!threadsFinished()) {
        while (timeout > secondsNow() - start) {
            usleep(kStopPollMicros);
            if (threadsFinished()) break;
        }
    }
    // Acquiring mServerExited orders the delete after the server thread's last use of the socket.
    // It is set on every way out of the server thread, also when listening failed (and
    // mServerFinished stays false); if the thread is still serving, it checks the stop request
    // before it would touch the socket again.
    mServerExited.load(std::memory_order_acquire);
    delete mServer;
    mServer = nullptr;
}

// The flags say our threads are done with the object; the thread ids say they have also returned
// out of this module, which a host may unload as soon as onClose returns.
bool RemoteCtrl::threadsFinished() const {
    return mServerFinished && mAcqThreads == 0 && threadHasExited(mServerTid) &&
           threadHasExited(mAcqTid);
}

void RemoteCtrl::threadWrapper(void* self) {
    auto* plugin = static_cast<RemoteCtrl*>(self);
    plugin->mServerTid = currentThreadId();
    plugin->serverFunction();
    plugin->mServerExited.store(true, std::memory_order_release);
}

// ---------------------------------------------------------------------------------------------
// Server loop and session

int RemoteCtrl::serverFunction() {
    if (mServer->startServer(static_cast<unsigned short>(mPort), kListenBacklog) != 0) {
        if (mHost)
            mHost->log(PLUGIN_NAME, 0, "Could not start the remote server at port %d", mPort);
        return -1;
    }
    while (!mStopServer) {
        TCPSocket* client = mServer->accept();
        if (client == nullptr) {
            if (!mStopServer) usleep(kAcceptRetryMicros);  // e.g. out of descriptors: don't spin
            continue;
        }
        if (!publishClient(client)) {
            delete client;  // accepted after the stop request: close it at once
            break;
        }
        handleClient(client);
    }
    mServerFinished = true;
    return 0;
}

// Publishes the connection unless a stop was requested. stopServer sets the flag before it takes
// the lock, so either it sees this client (and wakes it) or this sees the flag.
bool RemoteCtrl::publishClient(TCPSocket* client) {
    std::lock_guard<std::mutex> lock(mClientMutex);
    if (mStopServer) return false;
    mClient = client;
    return true;
}

void RemoteCtrl::unpublishClient() {
    std::lock_guard<std::mutex> lock(mClientMutex);
    mClient = nullptr;
}

int RemoteCtrl::handleClient(TCPSocket* client) {
    std::string line;
    for (;;) {
        int rc = client->getLine(line, kLineTimeout);
        if (mStopServer) break;
        if (rc == net::kTimedOut) continue;
        const std::string_view trimmed = protocol::trimLineEnd(line);
        // Also covers the peer closing the connection: getLine then yields its unterminated rest.
        if (protocol::endsSession(trimmed)) break;
        processCommandString(std::string(trimmed));
    }
    // Unpublish before deleting, so an acquisition reply can never reach a deleted socket.
    unpublishClient();
    delete client;
    return 0;
}

void RemoteCtrl::sendReply(const std::string& line) {
    std::lock_guard<std::mutex> lock(mClientMutex);
    if (mClient) mClient->sendLine(line, kReplyTimeout);
}

// ---------------------------------------------------------------------------------------------
// Command language

std::optional<std::vector<std::string>> RemoteCtrl::tokenizeQuotedString(
    const std::string& text, const std::string& delimiters) {
    return protocol::tokenizeQuotedString(text, delimiters);
}

void RemoteCtrl::processCommandString(std::string line) {
    protocol::ParsedLine parsed = protocol::parseCommandString(line);
    switch (parsed.kind) {
        case protocol::LineKind::SessionEnd:
        case protocol::LineKind::Ignored:
            return;
        case protocol::LineKind::SyntaxError:
            sendReply(protocol::kErrorSyntax);
            return;
        case protocol::LineKind::Command:
            processCommand(std::move(parsed.name), std::move(parsed.args));
            return;
    }
}

// ---------------------------------------------------------------------------------------------
// Dispatch

void RemoteCtrl::processCommand(std::string name, std::vector<std::string> args) {
    switch (protocol::matchCommand(name)) {
        case protocol::Command::GuiStart:
            return guiStart(std::move(args));
        case protocol::Command::GuiSetFile:
            return guiSetFile(std::move(args));
        case protocol::Command::GuiIsRunning:
            return guiIsRunning(std::move(args));
        case protocol::Command::GuiStop:
            return guiStop(std::move(args));
        case protocol::Command::Stop:
            return abortRunningAcquisition();
        case protocol::Command::Start:
            if (mAcqRunning) return sendReply(protocol::kErrorAlreadyRunning);
            return startAcquisition(args);
        case protocol::Command::Unknown:
            // While acquiring, only a second START is answered; unknown names get nothing.
            if (!mAcqRunning) sendReply(protocol::kErrorUnknownCommand);
            return;
    }
}

void RemoteCtrl::startAcquisition(const std::vector<std::string>& args) {
    if (args.size() != 5) return sendReply(protocol::kErrorStartArgumentCount);

    // Every parameter is converted before any is tested.
    const int index = str::toNumDef<int>(args[0], -1);
    const int count = str::toNumDef<int>(args[1], -1);
    const double time = str::toNumDef<double>(args[2], -1.0);
    const std::string& fileName = args[3];
    const double threshold = str::toNumDef<double>(args[4], -1.0);

    zn::PtrList<zn::IDev*> devices;
    if (mHost) mHost->listDevicesFiltered(&devices, 1);

    if (index < 0 || static_cast<unsigned int>(index) >= devices.size())
        return sendReply(protocol::kErrorDeviceIndex);
    if (count < 0) return sendReply(protocol::kErrorAcqCount);
    if (time < 0.0) return sendReply(protocol::kErrorAcqTime);

    zn::IDev* device = devices.get(static_cast<unsigned int>(index));
    double minimum = 0.0;
    double maximum = 0.0;
    device->thresholdRange(0, 2, &minimum, &maximum);
    // The range includes its minimum and excludes its maximum.
    if (threshold < 0.0 || threshold < minimum || !(threshold < maximum))
        return sendReply(protocol::kErrorThreshold);
    if (device->setThreshold(0, 2, threshold) != 0)
        return sendReply(protocol::kErrorSettingThreshold);

    mAcqTime = time;
    mAcqCount = count;
    mAcqFileName = fileName;
    mAcqRunning = true;
    mAcqDev = device;
    ++mAcqThreads;
    if (createThread(&RemoteCtrl::acqThreadWrapper, this) != 0) {
        mAcqDev = nullptr;
        mAcqRunning = false;
        --mAcqThreads;
        sendReply(protocol::kErrorAcquisitionFailed);
    }
}

// STOP() on the server thread, and the host's thread while stopping: an acquisition left running
// would call back into this object (and this module's code) after the host has unloaded it.
void RemoteCtrl::abortRunningAcquisition() {
    zn::IDev* device = mAcqDev;
    if (mAcqRunning && device) device->abortAcquisition();
}

// ---------------------------------------------------------------------------------------------
// GUI commands: hand a device to the host's "devcontrol" plug-in

zn::IDev* RemoteCtrl::getDev(int index) {
    zn::PtrList<zn::IDev*> devices;
    if (mHost) mHost->listDevices(&devices);
    if (index < 0 || static_cast<unsigned int>(index) >= devices.size()) {
        sendReply(protocol::kErrorDeviceIndex);
        return nullptr;
    }
    return devices.get(static_cast<unsigned int>(index));
}

zn::IDevControl* RemoteCtrl::getDevCtrl() {
    zn::IPluginHandle* handle = mHost ? mHost->findPlugin(kDevControlName) : nullptr;
    void* control = handle ? handle->privateInterface() : nullptr;
    if (control == nullptr) {
        sendReply(protocol::kErrorUnexpected);
        return nullptr;
    }
    return static_cast<zn::IDevControl*>(control);
}

// Checks, in this order, the argument count, the device index and the devcontrol plug-in; the first
// failure replies and yields false.
bool RemoteCtrl::resolveGuiTarget(const std::vector<std::string>& args, size_t expectedCount,
                                  zn::IDev*& device, zn::IDevControl*& control) {
    if (args.size() != expectedCount) {
        sendReply(expectedCount == 2 ? protocol::kErrorTwoArguments : protocol::kErrorOneArgument);
        return false;
    }
    device = getDev(str::toNumDef<int>(args[0], -1));
    if (!device) return false;
    control = getDevCtrl();
    return control != nullptr;
}

void RemoteCtrl::guiStart(std::vector<std::string> args) {
    zn::IDev* device;
    zn::IDevControl* control;
    if (resolveGuiTarget(args, 1, device, control)) control->start(device);
}

void RemoteCtrl::guiSetFile(std::vector<std::string> args) {
    zn::IDev* device;
    zn::IDevControl* control;
    if (resolveGuiTarget(args, 2, device, control)) control->setFile(device, args[1].c_str(), 1);
}

void RemoteCtrl::guiIsRunning(std::vector<std::string> args) {
    zn::IDev* device;
    zn::IDevControl* control;
    if (resolveGuiTarget(args, 1, device, control))
        sendReply(control->isRunning(device) ? protocol::kReplyYes : protocol::kReplyNo);
}

void RemoteCtrl::guiStop(std::vector<std::string> args) {
    zn::IDev* device;
    zn::IDevControl* control;
    if (resolveGuiTarget(args, 1, device, control)) control->stop(device);
}

// ---------------------------------------------------------------------------------------------
// Acquisition thread

void RemoteCtrl::acqThreadWrapper(void* self) {
    auto* plugin = static_cast<RemoteCtrl*>(self);
    plugin->mAcqTid = currentThreadId();
    plugin->acqFunction();
}

void RemoteCtrl::acqFunction() {
    zn::IDev* device = mAcqDev;
    const int count = mAcqCount;
    const double time = mAcqTime;
    const std::string fileName = mAcqFileName;

    const int result = device->runAcquisition(count, time, 1, fileName.c_str());

    // Idle before the reply: a client that sends START the moment it reads "OK" is accepted.
    mAcqDev = nullptr;
    mAcqRunning = false;
    // With no client connected the reply is dropped.
    sendReply(result == 0 ? protocol::kReplyOk : protocol::kErrorAcquisitionFailed);
    --mAcqThreads;  // last touch of this object
}

}  // namespace PluginRemoteCtrl
