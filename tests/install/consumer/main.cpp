// Asks a command server whose port is in a remotectrl.ini file whether device 1 is running, and
// prints the answer: uses every library of the installed package.
//
//   consumer SETTINGS_FILE
//
// Exit status: 0 with the answer printed, 1 on any failure (described on standard error).
#include <cstdio>
#include <string>

#include "fileops/fileops.h"
#include "host/ptrlist.h"
#include "net/sockets.h"
#include "settings/inifile.h"
#include "settings/str.h"

namespace {

constexpr double kTimeout = 10.0;

int fail(const std::string& message) {
    std::fprintf(stderr, "consumer: %s\n", message.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || !matchMask(argv[1], "*.ini")) return fail("usage: consumer SETTINGS.ini");
    IniFile settings(argv[1], "=");
    if (settings.load(nullptr) != 0) return fail(str::format("cannot read %s", argv[1]));
    int port = settings.getInt("Settings", "Port", -1);

    zn::PtrList<int> ports;
    ports.add(port);
    TCPSocket socket;
    if (socket.connect("127.0.0.1", static_cast<unsigned short>(ports.get(0)), kTimeout) != 0)
        return fail(str::format("cannot connect to port %d", port));
    // The sync line marks the end of the command's replies.
    if (socket.sendLine("GUI_ISRUNNING(1)\nGUI_SETFILE()", kTimeout) <= 0)
        return fail("cannot send");
    std::string answer, sync;
    if (socket.getLine(answer, kTimeout) != 0 || socket.getLine(sync, kTimeout) != 0)
        return fail("no answer");
    socket.sendLine("QUIT()", kTimeout);
    std::printf("%s\n", answer.c_str());
    return 0;
}
