// Command lines of znhost and rcclient.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "apps/rcclient/options.h"
#include "apps/znhost/options.h"

namespace {

std::vector<const char*> argvOf(const std::vector<std::string>& args) {
    std::vector<const char*> argv = {"program"};
    for (const std::string& arg : args)
        argv.push_back(arg.c_str());
    return argv;
}

bool parseHost(const std::vector<std::string>& args, znhost::Options& options, std::string& error) {
    std::vector<const char*> argv = argvOf(args);
    return znhost::parseOptions(static_cast<int>(argv.size()), argv.data(), options, error);
}

bool parseClient(const std::vector<std::string>& args, rcclient::ClientOptions& options,
                 std::string& error) {
    std::vector<const char*> argv = argvOf(args);
    return rcclient::parseClientOptions(static_cast<int>(argv.size()), argv.data(), options, error);
}

TEST(ZnhostOptions, DefaultsWithoutArguments) {
    znhost::Options options;
    std::string error;
    ASSERT_TRUE(parseHost({}, options, error));
    EXPECT_EQ(options.settingsDir, ".");
    EXPECT_EQ(options.dataDir, ".");
    EXPECT_TRUE(options.configFile.empty());
    EXPECT_TRUE(options.plugins.empty());
    EXPECT_FALSE(options.trace);
    EXPECT_FALSE(options.help);
}

TEST(ZnhostOptions, ValuesSeparateOrAfterEqualsAndRepeatedPlugins) {
    znhost::Options options;
    std::string error;
    ASSERT_TRUE(parseHost({"--config", "h.ini", "--settings-dir=s", "--data-dir", "d", "--trace",
                           "--plugin", "a.so", "--plugin=b.so"},
                          options, error))
        << error;
    EXPECT_EQ(options.configFile, "h.ini");
    EXPECT_EQ(options.settingsDir, "s");
    EXPECT_EQ(options.dataDir, "d");
    EXPECT_TRUE(options.trace);
    EXPECT_EQ(options.plugins, (std::vector<std::string>{"a.so", "b.so"}));
}

struct BadArgs {
    const char* name;
    std::vector<std::string> args;
    const char* mentioned;
};

// Rows print as their name in test listings.
void PrintTo(const BadArgs& row, std::ostream* out) {
    *out << row.name;
}

class ZnhostBadOptions : public ::testing::TestWithParam<BadArgs> {};

TEST_P(ZnhostBadOptions, AreRefusedWithAReason) {
    znhost::Options options;
    std::string error;
    EXPECT_FALSE(parseHost(GetParam().args, options, error));
    EXPECT_NE(error.find(GetParam().mentioned), std::string::npos) << error;
}

const BadArgs kZnhostBad[] = {
    {"unknown_option", {"--port", "1"}, "--port"}, {"positional", {"extra"}, "extra"},
    {"missing_value", {"--plugin"}, "--plugin"},   {"empty_value", {"--data-dir="}, "--data-dir"},
    {"value_on_flag", {"--trace=1"}, "--trace"},
};

INSTANTIATE_TEST_SUITE_P(Rows, ZnhostBadOptions, ::testing::ValuesIn(kZnhostBad),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(RcclientOptions, DefaultsAndCommandsInOrder) {
    rcclient::ClientOptions options;
    std::string error;
    ASSERT_TRUE(parseClient({"GUI_START(0)", "GUI_ISRUNNING(0)"}, options, error)) << error;
    EXPECT_EQ(options.host, "127.0.0.1");
    EXPECT_EQ(options.port, 59876);
    EXPECT_EQ(options.timeout, 5.0);
    EXPECT_FALSE(options.timeoutGiven);
    EXPECT_EQ(options.commands, (std::vector<std::string>{"GUI_START(0)", "GUI_ISRUNNING(0)"}));
}

TEST(RcclientOptions, ValuesAndDoubleDash) {
    rcclient::ClientOptions options;
    std::string error;
    ASSERT_TRUE(parseClient(
        {"--host", "localhost", "--port=1234", "--timeout", "0.5", "--", "--not-an-option"},
        options, error))
        << error;
    EXPECT_EQ(options.host, "localhost");
    EXPECT_EQ(options.port, 1234);
    EXPECT_EQ(options.timeout, 0.5);
    EXPECT_TRUE(options.timeoutGiven);
    EXPECT_EQ(options.commands, (std::vector<std::string>{"--not-an-option"}));
}

class RcclientBadOptions : public ::testing::TestWithParam<BadArgs> {};

TEST_P(RcclientBadOptions, AreRefusedWithAReason) {
    rcclient::ClientOptions options;
    std::string error;
    EXPECT_FALSE(parseClient(GetParam().args, options, error));
    EXPECT_NE(error.find(GetParam().mentioned), std::string::npos) << error;
}

const BadArgs kRcclientBad[] = {
    {"unknown_option", {"--verbose"}, "--verbose"},
    {"port_zero", {"--port", "0"}, "--port"},
    {"port_with_text", {"--port", "80x"}, "--port"},
    {"timeout_zero", {"--timeout", "0"}, "--timeout"},
    {"missing_value", {"--host"}, "--host"},
    {"line_break_in_command", {"GUI_START(0)\nGUI_STOP(0)"}, "line break"},
};

INSTANTIATE_TEST_SUITE_P(Rows, RcclientBadOptions, ::testing::ValuesIn(kRcclientBad),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
