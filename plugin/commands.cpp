#include "plugin/commands.h"

#include "host/ptrlist.h"
#include "protocol/replies.h"
#include "settings/str.h"

namespace PluginRemoteCtrl {

namespace {

constexpr const char* kDevControlName = "devcontrol";
constexpr int kNotANumber = -1;  // what a numeric argument that does not convert becomes

}  // namespace

void Commands::processCommandString(SessionId session, std::string_view trimmedLine) {
    mSession = session;
    protocol::ParsedLine parsed = protocol::parseCommandString(trimmedLine);
    switch (parsed.kind) {
        case protocol::LineKind::SessionEnd:
        case protocol::LineKind::Ignored:
            return;
        case protocol::LineKind::SyntaxError:
            return reply(protocol::kErrorSyntax);
        case protocol::LineKind::Command:
            return processCommand(parsed.name, parsed.args);
    }
}

void Commands::processCommand(const std::string& name, const Arguments& args) {
    const protocol::CommandRule& command = protocol::findCommand(name);
    const bool acquiring = mAcquisition.running();
    if (command.command == protocol::Command::Unknown) {
        if (!acquiring) reply(protocol::kErrorUnknownCommand);
        return;
    }
    if (command.command == protocol::Command::Start && acquiring)
        return reply(protocol::kErrorAlreadyRunning);
    if (!command.acceptsArgumentCount(args.size())) return reply(command.wrongCountReply);
    (this->*handlerFor(command.command))(args);
}

Commands::Handler Commands::handlerFor(protocol::Command command) {
    switch (command) {
        case protocol::Command::Start:
            return &Commands::start;
        case protocol::Command::GuiStart:
            return &Commands::guiStart;
        case protocol::Command::GuiSetFile:
            return &Commands::guiSetFile;
        case protocol::Command::GuiIsRunning:
            return &Commands::guiIsRunning;
        case protocol::Command::GuiStop:
            return &Commands::guiStop;
        case protocol::Command::Stop:
        case protocol::Command::Unknown:  // answered by processCommand before it gets here
            break;
    }
    return &Commands::stop;
}

void Commands::reply(const char* line) {
    mChannel.send(mSession, line);
}

void Commands::start(const Arguments& args) {
    // Every parameter is converted before any is tested.
    AcquisitionRequest request;
    request.deviceIndex = str::toNumDef<int>(args[0], kNotANumber);
    request.count = str::toNumDef<int>(args[1], kNotANumber);
    request.time = str::toNumDef<double>(args[2], kNotANumber);
    request.fileName = args[3];
    const double threshold = str::toNumDef<double>(args[4], kNotANumber);

    zn::PtrList<zn::IDev*> devices;
    if (mHost) mHost->listDevicesFiltered(&devices, zn::kAcquisitionDeviceFilter);
    const int index = request.deviceIndex;
    if (index < 0 || static_cast<unsigned int>(index) >= devices.size())
        return reply(protocol::kErrorDeviceIndex);
    if (request.count < 0) return reply(protocol::kErrorAcqCount);
    if (request.time < 0.0) return reply(protocol::kErrorAcqTime);

    request.device = devices.get(static_cast<unsigned int>(index));
    double minimum = 0.0;
    double maximum = 0.0;
    request.device->thresholdRange(zn::kThresholdSelector, zn::kThresholdKind, &minimum, &maximum);
    // The range includes its minimum and excludes its maximum.
    if (threshold < 0.0 || threshold < minimum || !(threshold < maximum))
        return reply(protocol::kErrorThreshold);
    if (request.device->setThreshold(zn::kThresholdSelector, zn::kThresholdKind, threshold) != 0)
        return reply(protocol::kErrorSettingThreshold);

    if (!mAcquisition.start(mSession, std::move(request))) reply(protocol::kErrorAcquisitionFailed);
}

void Commands::stop(const Arguments&) {
    mAcquisition.stop();
}

zn::IDev* Commands::getDev(int index) {
    zn::PtrList<zn::IDev*> devices;
    if (mHost) mHost->listDevices(&devices);
    if (index < 0 || static_cast<unsigned int>(index) >= devices.size()) {
        reply(protocol::kErrorDeviceIndex);
        return nullptr;
    }
    return devices.get(static_cast<unsigned int>(index));
}

zn::IDevControl* Commands::getDevCtrl() {
    zn::IPluginHandle* handle = mHost ? mHost->findPlugin(kDevControlName) : nullptr;
    void* control = handle ? handle->privateInterface() : nullptr;
    if (control == nullptr) {
        reply(protocol::kErrorUnexpected);
        return nullptr;
    }
    return static_cast<zn::IDevControl*>(control);
}

bool Commands::resolveGuiTarget(const Arguments& args, zn::IDev*& device,
                                zn::IDevControl*& control) {
    device = getDev(str::toNumDef<int>(args[0], kNotANumber));
    if (!device) return false;
    control = getDevCtrl();
    return control != nullptr;
}

void Commands::guiStart(const Arguments& args) {
    zn::IDev* device;
    zn::IDevControl* control;
    if (resolveGuiTarget(args, device, control)) control->start(device);
}

void Commands::guiSetFile(const Arguments& args) {
    zn::IDev* device;
    zn::IDevControl* control;
    if (resolveGuiTarget(args, device, control))
        control->setFile(device, args[1].c_str(), zn::kSetFileFlag);
}

void Commands::guiIsRunning(const Arguments& args) {
    zn::IDev* device;
    zn::IDevControl* control;
    if (resolveGuiTarget(args, device, control))
        reply(control->isRunning(device) ? protocol::kReplyYes : protocol::kReplyNo);
}

void Commands::guiStop(const Arguments& args) {
    zn::IDev* device;
    zn::IDevControl* control;
    if (resolveGuiTarget(args, device, control)) control->stop(device);
}

}  // namespace PluginRemoteCtrl
