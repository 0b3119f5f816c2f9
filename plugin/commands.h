// The commands of one line: the dispatcher and its handlers, on the server thread.
//
// A line is parsed by the command language (protocol/command_language.h), its name looked up in
// the command table there (names without regard to case; each row's argument count and the reply
// to another count), and its handler run. The GUI_ commands are served in every state; START is
// refused while an acquisition runs, before its arguments are looked at; STOP ends the running
// acquisition and sends nothing; an unknown name is answered "ERROR: UNKNOWN COMMAND" while idle
// and not at all while an acquisition runs. Every reply goes to the session whose line runs.
//
// START's device index counts in the host's filtered device list, the GUI_ commands' index in the
// full list; both lists and the "devcontrol" plug-in are looked up anew for every command.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/interfaces.h"
#include "plugin/acquisition.h"
#include "plugin/channel.h"
#include "protocol/command_language.h"

namespace PluginRemoteCtrl {

class Commands {
public:
    Commands(zn::IZenthi*& host, Acquisition& acquisition, ClientChannel& channel)
        : mHost(host), mAcquisition(acquisition), mChannel(channel) {}

    // Carries out one trimmed line of `session`.
    void processCommandString(SessionId session, std::string_view trimmedLine);

private:
    using Arguments = std::vector<std::string>;
    using Handler = void (Commands::*)(const Arguments&);

    void processCommand(const std::string& name, const Arguments& args);
    static Handler handlerFor(protocol::Command command);
    void reply(const char* line);

    void start(const Arguments& args);
    void stop(const Arguments& args);
    void guiStart(const Arguments& args);
    void guiSetFile(const Arguments& args);
    void guiIsRunning(const Arguments& args);
    void guiStop(const Arguments& args);

    // The GUI_ commands' device and the devcontrol plug-in; the first failure replies and gives
    // false.
    bool resolveGuiTarget(const Arguments& args, zn::IDev*& device, zn::IDevControl*& control);
    zn::IDev* getDev(int index);
    zn::IDevControl* getDevCtrl();

    zn::IZenthi*& mHost;  // set by initialize before the server thread starts
    Acquisition& mAcquisition;
    ClientChannel& mChannel;
    SessionId mSession = kNoSession;  // the session whose line runs now
};

}  // namespace PluginRemoteCtrl
