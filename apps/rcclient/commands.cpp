#include "apps/rcclient/commands.h"

#include "protocol/command_language.h"
#include "settings/str.h"

namespace rcclient {

bool startDuration(const std::string& command, double& seconds) {
    const protocol::ParsedLine parsed = protocol::classifyLine(command);
    if (parsed.kind != protocol::LineKind::Command || parsed.args.size() != 5) return false;
    const int count = str::toNumDef<int>(parsed.args[1], -1);
    const double time = str::toNumDef<double>(parsed.args[2], -1.0);
    if (count < 0 || time < 0) return false;
    seconds = count * time;
    return true;
}

}  // namespace rcclient
