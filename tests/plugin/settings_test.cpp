// The plug-in's settings file: what it reads, every mistake that must keep the server closed,
// and which clients AllowFrom admits.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "plugin/settings.h"
#include "tests/support/files.h"
#include "tests/support/row_name.h"
#include "tests/support/temp_dir.h"
#include "tests/support/tls_client.h"

namespace testhost {
namespace {

using namespace testsupport;
using namespace PluginRemoteCtrl;

const char* const kFolder = "<a folder of that name>";
const char* const kUnreadable = "[Settings]\nPort=1\n";  // written, then made unreadable

struct SettingsRow {
    const char* name;
    const char* bytes;     // the whole file; nullptr: no file
    const char* expected;  // the error, "@" for the file's path and "~" for its folder, or ""
    int port = 59876;      // the port read
    bool tls = false;      // whether the server speaks TLS
};

// The usual start of a file, and of one for TLS with the test PKI's files beside it.
#define SECTION "[Settings]\n"
#define CERTIFICATE SECTION "TlsCertificate=server.pem\n"
#define TLS CERTIFICATE "TlsKey=server.key\nTlsClientCA=ca.pem\n"

const SettingsRow kSettingsRows[] = {
    {"no_file", nullptr, ""},
    {"folder", kFolder, "@: not a regular file"},
    {"unreadable", kUnreadable, "@: cannot open: Permission denied"},
    {"every_key", SECTION "Port=99\nAddress=1.2.3.4\nAllowFrom=1.2.3.4\nIdleTimeout=0.5", "", 99},
    {"byte_order_mark", "\xEF\xBB\xBF" SECTION "Port=1234", "", 1234},
    {"empty_values_are_absent", SECTION "Address=\nAllowFrom= \nIdleTimeout=", ""},
    {"other_sections_ignored", "x=1\n[Other]\nallowfrom=1\n" SECTION "Port=7", "", 7},
    {"port_not_a_number_is_lenient", SECTION "Port=abc", ""},
    {"lower_case_key", SECTION "allowfrom=127.0.0.1", "Unknown setting allowfrom in @"},
    {"blanks_around_key", SECTION "AllowFrom = 127.0.0.1", "Unknown setting AllowFrom  in @"},
    {"misspelt_key", SECTION "AllowForm=127.0.0.1", "Unknown setting AllowForm in @"},
    {"section_case", "[settings]", "Unknown section [settings] in @"},
    {"address_not_digits", SECTION "Address=127.0.0.x", "Invalid setting Address: 127.0.0.x in @"},
    {"prefix_33", SECTION "AllowFrom=1.0.0.0/33", "Invalid setting AllowFrom: 1.0.0.0/33 in @"},
    {"empty_item", SECTION "AllowFrom=1.2.3.4,", "Invalid setting AllowFrom: 1.2.3.4, in @"},
    {"idle_negative", SECTION "IdleTimeout=-1", "Invalid setting IdleTimeout: -1 in @"},
    {"address_first", SECTION "IdleTimeout=x\nAddress=y", "Invalid setting Address: y in @"},
    {"tls", TLS "TlsAllowedClients=a, b\nTlsMinVersion=1.2", "", 59876, true},
    {"tls_key_missing", CERTIFICATE "TlsClientCA=ca.pem", "Missing setting TlsKey in @"},
    {"tls_authority_missing", CERTIFICATE "TlsKey=server.key", "Missing setting TlsClientCA in @"},
    {"tls_certificate_missing", SECTION "TlsMinVersion=1.3", "Missing setting TlsCertificate in @"},
    {"tls_version", TLS "TlsMinVersion=1.1", "Invalid setting TlsMinVersion: 1.1 in @"},
    {"tls_empty_client", TLS "TlsAllowedClients=a,", "Invalid setting TlsAllowedClients: a, in @"},
    {"tls_file_missing", TLS "TlsClientCA=no.pem",
     "~/no.pem: cannot open: No such file or directory"},
    {"tls_key_readable", TLS "TlsKey=open.key",
     "~/open.key: readable by group or others (chmod 600 it)"},
    {"tls_key_mismatch", TLS "TlsKey=ca.key",
     "~/ca.key: does not match the certificate in ~/server.pem"},
    {"tls_expired", TLS "TlsCertificate=expired-server.pem\nTlsKey=expired-server.key",
     "~/expired-server.pem: expired on 2020-01-02 00:00 UTC"},
    {"tls_authority_not_pem", TLS "TlsClientCA=ca.key", "~/ca.key: no certificate"},
};

#undef TLS
#undef CERTIFICATE
#undef SECTION

// The test PKI's files in `dir`, and open.key: the server's key, readable by the group.
void copyTestPki(const std::string& dir) {
    for (const char* name : {"ca.pem", "ca.key", "server.pem", "server.key", "expired-server.pem",
                             "expired-server.key"})
        std::filesystem::copy_file(pkiFile(name), dir + "/" + name);
    std::filesystem::copy_file(pkiFile("server.key"), dir + "/open.key");
    chmod((dir + "/open.key").c_str(), 0640);
}

class SettingsTest : public ::testing::TestWithParam<SettingsRow> {};

TEST_P(SettingsTest, ReadsOrNamesTheFault) {
    const SettingsRow& row = GetParam();
    if (row.bytes == kUnreadable && geteuid() == 0) GTEST_SKIP() << "root reads every file";
    TempDir dir;
    const std::string path = dir.file("remotectrl.ini");
    if (row.bytes == kFolder) std::filesystem::create_directory(path);
    if (row.bytes != kFolder && row.bytes != nullptr) writeFile(path, row.bytes);
    if (row.bytes == kUnreadable) chmod(path.c_str(), 0);
    copyTestPki(dir.path());
    const PluginSettings settings = readPluginSettings(dir.path());
    std::string expected;
    for (const char* c = row.expected; *c != '\0'; ++c)
        expected += *c == '@' ? path : *c == '~' ? dir.path() : std::string(1, *c);
    EXPECT_EQ(settings.error, expected);
    EXPECT_EQ(settings.port, row.port);
    EXPECT_EQ(settings.tls != nullptr, row.tls);
}

INSTANTIATE_TEST_SUITE_P(Rows, SettingsTest, ::testing::ValuesIn(kSettingsRows), RowName());

TEST(AllowFrom, MatchesAddressesAndBlocks) {
    TempDir dir;
    writeFile(dir.path() + "/remotectrl.ini",
              "[Settings]\nAllowFrom=10.1.2.3/8, 192.168.1.7, 172.16.0.0/12\n");
    const auto allowFrom = readPluginSettings(dir.path()).allowFrom;
    for (const char* allowed : {"10.200.0.1", "192.168.1.7", "172.31.255.255"})
        EXPECT_TRUE(isAllowed(allowFrom, allowed)) << allowed;
    for (const char* refused : {"11.0.0.1", "192.168.1.8", "172.32.0.0", ""})
        EXPECT_FALSE(isAllowed(allowFrom, refused)) << refused;
    EXPECT_TRUE(isAllowed({{0, 0}}, "1.2.3.4"));
}

}  // namespace
}  // namespace testhost
