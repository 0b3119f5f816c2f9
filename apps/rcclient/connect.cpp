#include "apps/rcclient/connect.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace rcclient {

bool lookUpIPv4(const std::string& host, std::string& address) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr) return false;
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr, text,
                sizeof text);
    ::freeaddrinfo(found);
    address = text;
    return true;
}

bool connectToServer(TCPSocket& socket, const std::string& host, unsigned short port,
                     double timeout, std::string& error, HostLookup lookUp) {
    std::string address;
    if (!lookUp(host, address)) {
        error = "cannot resolve " + host;
        return false;
    }
    const int connected = socket.connect(address, port, timeout);
    if (connected == 0) {
        socket.setNoDelay();  // commands are short lines, each awaited: none should wait to gather
        return true;
    }
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%g", timeout);
    error = "cannot connect to " + host + ":" + std::to_string(port) + ": " +
            (connected == net::kTimedOut ? "no answer within " + std::string(seconds) + " s"
                                         : std::string(std::strerror(errno)));
    return false;
}

}  // namespace rcclient
