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
#include "plugin/settings.h"
#include "protocol/command_language.h"
#include "protocol/replies.h"
#include "settings/str.h"

namespace PluginRemoteCtrl {

const char* RemoteCtrl::PLUGIN_NAME = "remotectrl";
const char* RemoteCtrl::PLUGIN_DESC = "Plugin that adds tcp/ip interface";

namespace {

constexpr int kListenBacklog = 5;
constexpr double kLineTimeout = 1.0;
constexpr double kReplyTimeout = 1.0;
constexpr double kReplySliceSeconds = 0.05;
constexpr int kListenRetrySlices = 10;  // of kStopPollMicros: one attempt a second
constexpr size_t kMaxLineLength = 65536;
constexpr int kNotStarted = -1;  // an acquisition stopped before the device was called
constexpr useconds_t kStopPollMicros = 100000;
constexpr useconds_t kAcceptRetryMicros = 50000;
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
    // A host without a settings directory leaves the defaults.
    const char* dir = mHost ? mHost->configDir() : nullptr;
    if (dir == nullptr) return;
    mSettings = readPluginSettings(dir);
    mPort = mSettings.port;
    if (!mSettings.invalidKey.empty())
        log("Invalid setting %s: %s", mSettings.invalidKey.c_str(), mSettings.invalidValue.c_str());
}

template <typename... Args>
void RemoteCtrl::log(const char* format, Args... args) {
    if (mHost) mHost->log(PLUGIN_NAME, 0, format, args...);
}

void RemoteCtrl::stopServer(double timeout) {
    mStopServer = true;
    // shutdown() rather than close(): it makes a pending accept() and a pending read return at
    // once, while the descriptors stay valid for the threads still using them.
    {
        std::lock_guard<std::mutex> lock(mClientMutex);
        if (mServer) mServer->shutdownBoth();
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
    std::lock_guard<std::mutex> lock(mClientMutex);
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
    // Bad settings fail closed: no server rather than a wider one (logged by loadSettings).
    if (mSettings.invalidKey.empty() && listenUntilStopped()) {
        while (!mStopServer) {
            TCPSocket* client = mServer->accept();
            if (client == nullptr) {
                if (!mStopServer) usleep(kAcceptRetryMicros);  // e.g. out of descriptors
                continue;
            }
            if (!admit(client)) continue;
            if (!publishClient(client)) {
                delete client;  // accepted after the stop request: close it at once
                break;
            }
            handleClient(client);
        }
    }
    mServerFinished = true;
    return 0;
}

// Another program may hold the port (or a host restarted at once may find it in the closing
// wait of its last session): say so once, then try again every second until stopped. A failed
// socket cannot simply bind again, since listen() gave it a port of the system's choice, so each
// attempt gets a fresh one.
bool RemoteCtrl::listenUntilStopped() {
    for (bool logged = false; !mStopServer; logged = true) {
        {
            std::lock_guard<std::mutex> lock(mClientMutex);
            if (mServer == nullptr) return false;
            mServer->setReuseAddress();
            const unsigned short port = static_cast<unsigned short>(mPort);
            const int started = mSettings.address.empty()
                                    ? mServer->startServer(port, kListenBacklog)
                                    : mServer->startServer(mSettings.address, port, kListenBacklog);
            if (started == 0) return true;
            delete mServer;
            mServer = new TCPServerSocket();
        }
        if (!logged) log("Could not start the remote server at port %d", mPort);
        for (int slice = 0; slice < kListenRetrySlices && !mStopServer; ++slice)
            usleep(kStopPollMicros);
    }
    return false;
}

// Clients outside AllowFrom are told so and closed before any line is read.
bool RemoteCtrl::admit(TCPSocket* client) {
    const std::string address = client->getForeignAddress();
    if (isAllowed(mSettings.allowFrom, address)) {
        client->setMaxLineLength(kMaxLineLength);
        return true;
    }
    client->sendLine(protocol::kErrorAccessDenied, kReplyTimeout);
    log("Refused connection from %s", address.c_str());
    delete client;
    return false;
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
    const unsigned long session = ++mSessionCount;
    double lastLineAt = secondsNow();
    std::string line;
    for (;;) {
        const int rc = client->getLine(line, kLineTimeout);
        if (mStopServer) break;
        if (rc == net::kTimedOut) {
            if (isIdleTooLong(session, lastLineAt)) break;
            continue;
        }
        lastLineAt = secondsNow();
        if (rc == net::kLineTooLong) {
            sendReply(protocol::kErrorCommandTooLong);
            continue;
        }
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

// An acquisition this session started keeps it open however long the client stays silent.
bool RemoteCtrl::isIdleTooLong(unsigned long session, double lastLineAt) const {
    if (mSettings.idleTimeout <= 0.0) return false;
    if (mAcqRunning && mAcqSession == session) return false;
    return secondsNow() - lastLineAt >= mSettings.idleTimeout;
}

// A reply waits as long as its client stays connected and reads now and then: each wait is short,
// so a stop request ends it at once. A client that has read nothing for mStalledClientLimit
// seconds while a reply waits is disconnected; a client that went away makes the send fail.
void RemoteCtrl::sendReply(const std::string& line) {
    std::lock_guard<std::mutex> lock(mClientMutex);
    if (mClient == nullptr) return;
    const double waitingSince = secondsNow();
    while (mClient->sendLine(line, kReplySliceSeconds) == net::kTimedOut && !mStopServer) {
        if (secondsNow() - waitingSince < mStalledClientLimit) continue;
        log("Disconnected client %s: it read no reply for %g s",
            mClient->getForeignAddress().c_str(), mStalledClientLimit);
        mClient->shutdownBoth();
        return;
    }
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
    mAcqSession = mSessionCount.load();
    {
        std::lock_guard<std::mutex> lock(mAcqMutex);
        mAcqStopRequested = false;
        mAcqCalled = false;
    }
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
// A STOP that comes before the acquisition thread has called the device is not lost: the thread
// sees the request and does not start the run.
void RemoteCtrl::abortRunningAcquisition() {
    std::lock_guard<std::mutex> lock(mAcqMutex);
    zn::IDev* device = mAcqDev;
    if (!mAcqRunning || device == nullptr) return;
    mAcqStopRequested = true;
    if (mAcqCalled) device->abortAcquisition();
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

    bool stopped = false;
    {
        std::lock_guard<std::mutex> lock(mAcqMutex);
        stopped = mAcqStopRequested;
        mAcqCalled = !stopped;
    }
    const int result =
        stopped ? kNotStarted : device->runAcquisition(count, time, 1, fileName.c_str());

    // Idle before the reply: a client that sends START the moment it reads "OK" is accepted.
    mAcqDev = nullptr;
    mAcqRunning = false;
    // With no client connected the reply is dropped.
    sendReply(result == 0 ? protocol::kReplyOk : protocol::kErrorAcquisitionFailed);
    --mAcqThreads;  // last touch of this object
}

}  // namespace PluginRemoteCtrl
