// Files of another kind than the library expects.
#define OXR_MODULE "tests"
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "OstrelProvider/config.h"
#include "OstrelProvider/service.h"
#include "OstrelProviderSetting/config_writer.h"
#include "support/host_test.h"

namespace {

class FileKinds : public testing_support::HostTest {};

TEST_F(FileKinds, WhatIsNoRegularFileIsRefusedAtOnce) {
    alarm(60);  // an opening that waits ends the test
    constexpr char log[] = "/var/log/ostrel/oxr.log";
    const std::string full(3 << 20, 'x');
    ConfigValues values;
    char version[VERSION_TEXT_SIZE];
    const struct {
        std::string file;
        std::function<bool()> use;
    } files[] = {
        {"/etc/ostrel/oxr.conf", [&] { return OSTREL_GetConfigValues(&values, CONFIG_NORMAL) == 0; }},
        {"/etc/ostrel/oxr.conf", [&] { return set_value_in_file(&values) == 0; }},
        {"/etc/ostrel/oxdversion.txt", [&] { return getOxdVersion(version) == 1; }},
        {log, [&] { return OXR_ERROR("a message"), host->read_file("/etc/ostrel/real").ends_with("a message\n"); }},
        {std::string(log) + ".1",
         [&] {
             host->write_file(log, full);
             OXR_ERROR("in a new log");
             EXPECT_LT(host->log().size(), 200U);
             return host->read_file("/etc/ostrel/real") == full;
         }},
    };
    const struct {
        const char* name;
        std::function<int(const char*)> make;
        bool is_used;
    } kinds[] = {
        {"FIFO", [](const char* at) { return mkfifo(at, 0600); }, false},
        {"device", [](const char* at) { return symlink("/dev/zero", at); }, false},
        {"folder", [](const char* at) { return mkdir(at, 0700); }, false},
        {"link to a file", [&](const char* at) { return symlink(host->path("/etc/ostrel/real").c_str(), at); }, true},
    };
    for (const auto& file : files) {
        for (const auto& kind : kinds) {
            host->write_file("/etc/ostrel/real", "# a comment\n");
            const std::string path = host->path(file.file);
            std::filesystem::remove(path);
            ASSERT_EQ(kind.make(path.c_str()), 0);
            EXPECT_EQ(file.use(), kind.is_used) << file.file << ", " << kind.name;
            std::filesystem::remove(path);
        }
    }
}

}  // namespace
