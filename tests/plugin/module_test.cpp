// The built module exports its entry function and nothing else, so none of its symbols can clash
// with the host's. Loading, serving and unloading it are tested with znhost's loader.
#include <cstdio>
#include <set>

#include "tests/plugin/plugin_fixture.h"

namespace testhost {
namespace {

std::set<std::string> exportedSymbols(const std::string& path) {
    std::set<std::string> symbols;
    FILE* pipe = popen(("nm -D --defined-only '" + path + "'").c_str(), "r");
    char name[400];
    while (pipe != nullptr && std::fscanf(pipe, "%*s %*s %399s", name) == 1)
        symbols.insert(name);
    if (pipe != nullptr) pclose(pipe);
    return symbols;
}

TEST(Module, ExportsOnlyTheEntryFunction) {
    EXPECT_EQ(exportedSymbols(REMOTECTRL_MODULE_PATH), std::set<std::string>{"znGetPlugin"});
}

}  // namespace
}  // namespace testhost
