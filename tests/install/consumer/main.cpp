// Asks the command server whose port is in the remotectrl.ini file given whether device 1 runs and
// prints the answer, using every library of the installed package. Exit status 1 on any failure.
#include <cstdio>
#include <string>

#include "fileops/fileops.h"
#include "host/ptrlist.h"
#include "net/sockets.h"
#include "settings/inifile.h"
#include "settings/str.h"

int main(int argc, char** argv) {
    constexpr double kTimeout = 10.0;
    if (argc != 2 || !matchMask(argv[1], "*.ini")) return 1;
    IniFile settings(argv[1], "=");
    zn::PtrList<int> ports;
    ports.add(settings.load(nullptr) == 0 ? settings.getInt("Settings", "Port", -1) : -1);
    TCPSocket socket;
    std::string answer, sync;
    // The sync line marks the end of the command's replies.
    if (socket.connect("127.0.0.1", static_cast<unsigned short>(ports.get(0)), kTimeout) != 0 ||
        socket.sendLine("GUI_ISRUNNING(1)\nGUI_SETFILE()", kTimeout) <= 0 ||
        socket.getLine(answer, kTimeout) != 0 || socket.getLine(sync, kTimeout) != 0) {
        std::fputs(str::format("consumer: no answer from port %d\n", ports.get(0)).c_str(), stderr);
        return 1;
    }
    socket.sendLine("QUIT()", kTimeout);
    std::printf("%s\n", answer.c_str());
    return 0;
}
