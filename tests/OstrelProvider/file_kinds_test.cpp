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

using testing_support::Lines;

class FileKinds : public testing_support::HostTest {};

TEST_F(FileKinds, WhatIsNoRegularFileIsRefusedAtOnce) {
    alarm(60);  // an opening that waits ends the test
    constexpr char log[] = "/var/log/ostrel/oxr.log";
    constexpr std::uintmax_t full = 3 << 20;
    const std::string real = host->path("/etc/ostrel/real");
    ConfigValues values;
    char version[VERSION_TEXT_SIZE];
    std::string path;
    const auto is_longer_than = [&](std::uintmax_t size) {
        return std::filesystem::is_regular_file(path) && std::filesystem::file_size(path) > size;
    };
    const struct {
        std::string file;
        std::function<bool()> open;
        std::string said;  // when it is refused; "%": the system's text
    } files[] = {
        {"/etc/ostrel/oxr.conf", [&] { return OSTREL_GetConfigValues(&values, CONFIG_NORMAL) == 0; },
         "ERROR OSTREL_GetConfigValues: %, fopen() failed on oxr.conf."},
        {"/etc/ostrel/oxr.conf", [&] { return set_value_in_file(&values) == 0; },
         "ERROR set_value_in_file: fopen of oxr.conf returned NULL"},
        {"/etc/ostrel/oxdversion.txt", [&] { return getOxdVersion(version) == 1; },
         "ERROR getOxdVersion: cannot open file to read version from."},
        {log, [&] { return OXR_ERROR("lost"), is_longer_than(20); }, ""},
        {std::string(log) + ".1",
         [&] {
             host->write_file(log, std::string(full, 'x'));
             OXR_ERROR_IN("rotation", "in a new log");
             return is_longer_than(full - 1);
         },
         "ERROR rotation: in a new log"},
    };
    const struct {
        const char* name;
        std::function<int(const char*)> make;
        const char* error;  // null: it is opened
    } kinds[] = {
        {"FIFO", [](const char* at) { return mkfifo(at, 0600); }, "No such device or address"},
        {"device", [](const char* at) { return symlink("/dev/zero", at); }, "No such device or address"},
        {"folder", [](const char* at) { return mkdir(at, 0700); }, "Is a directory"},
        {"link to a file", [&](const char* at) { return symlink(real.c_str(), at); }, nullptr},
    };
    for (const auto& file : files) {
        for (const auto& kind : kinds) {
            SCOPED_TRACE(file.file + ", " + kind.name);
            host->write_file("/etc/ostrel/real", "# a comment\n");
            path = host->path(file.file);
            std::filesystem::remove(path);
            ASSERT_EQ(kind.make(path.c_str()), 0);
            EXPECT_EQ(file.open(), kind.error == nullptr);
            std::filesystem::remove(path);
            const Lines lines = said("ERROR");
            if (kind.error == nullptr) {
                continue;
            }
            std::string expected = file.said;
            if (expected.find('%') != std::string::npos) {
                expected.replace(expected.find('%'), 1, kind.error);
            }
            EXPECT_EQ(lines, expected.empty() ? Lines() : Lines{expected});
        }
    }
}

}  // namespace
