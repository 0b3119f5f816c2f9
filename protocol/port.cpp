#include "protocol/port.h"

namespace protocol {

namespace {

constexpr unsigned long kHighestPort = 65535;

}  // namespace

bool parsePort(std::string_view text, unsigned short& port) {
    unsigned long value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<unsigned long>(c - '0');
        if (value > kHighestPort) return false;
    }
    if (value == 0) return false;  // also the empty text
    port = static_cast<unsigned short>(value);
    return true;
}

}  // namespace protocol
