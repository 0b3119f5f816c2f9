// The command stream over a plain connection (command_stream.h).
#include "fuzz/command_stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzzstream::Server server("");
    return fuzzstream::serve<testsupport::RawClient>(server, data, size);
}
