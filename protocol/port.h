// A TCP port as a user gives it on a command line (znhost --port, rcclient --port).
#pragma once

#include <string_view>

namespace protocol {

// Decimal digits only (no sign, no blanks), from 1 to 65535. False leaves `port` as it was.
bool parsePort(std::string_view text, unsigned short& port);

}  // namespace protocol
