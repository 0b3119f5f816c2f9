// What rcclient needs to know of a START beyond how its replies pair: how long it should run.
#pragma once

#include <string>

namespace rcclient {

// count x time of a START command, its arguments cut and converted as the server does. False
// when the command has no such two arguments or either is negative, in which case the server
// refuses it at once.
bool startDuration(const std::string& command, double& seconds);

}  // namespace rcclient
