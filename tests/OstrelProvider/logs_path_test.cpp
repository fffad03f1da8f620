#include "OstrelProvider/logs_path.h"

#include <sys/stat.h>

#include <filesystem>

#include "OstrelProvider/config.h"
#include "support/host_test.h"

namespace {

using testing_support::HostTest;
using testing_support::Lines;

TEST_F(HostTest, TheLastExactLineNamesTheLogsFolder) {
    const std::string key = "ostrel_logs_path=";
    const std::string a = "/vmfs/volumes/a";
    const std::string longest = "/vmfs/volumes/" + std::string(77, 'd');
    for (const std::string& folder : {a, a + " b", longest, longest + "e"}) {
        std::filesystem::create_directories(host->path(folder));
    }
    const struct {
        std::string text;
        std::string path;  // empty: the default, and the log says so
    } cases[] = {
        {key + a, a},
        {key + a + "\r\n", a},
        {key + a + "\tnote\n", a},
        {key + a + " b\n", a + " b"},
        {key + a + " \n", ""},
        {" " + key + a + "\n", ""},
        {key + a + "\n" + key + "/none\n", ""},
        {key + a + "\n" + key + "\n", a},     // 18 characters: no line of this key
        {key + a + "\n" + key + "/\n", "/"},  // 19
        {key + a + "\n" + key + "/", a},
        {key + longest + "\n", longest},
        {key + longest + "e\n", ""},
        {std::string(255, 'x') + key + a + "\n", ""},
    };
    char name[LOG_FILENAME_SIZE];
    EXPECT_STREQ(get_log_filename(name), "/var/log/ostrel/oxr.log") << "without a configuration file";
    EXPECT_EQ(said(), Lines());
    for (const auto& each : cases) {
        host->write_file(OSTREL_CONFIG_FILE, each.text);
        EXPECT_EQ(get_log_filename(name), (each.path.empty() ? DEFAULT_LOG_DIR : each.path) + "/oxr.log") << each.text;
        EXPECT_EQ(said("ERROR get_logs_path: Unable to find").empty(), !each.path.empty()) << each.text;
    }
}

TEST_F(HostTest, TheDefaultLogFolderIsMadeForEverybody) {
    std::filesystem::remove_all(host->path(DEFAULT_LOG_DIR));
    umask(0);
    OSTREL_CreateLogDir();
    EXPECT_EQ(said(), Lines{"INFO OSTREL_CreateLogDir: Log dir has been created."});
    EXPECT_EQ(std::filesystem::status(host->path(DEFAULT_LOG_DIR)).permissions(), std::filesystem::perms::all);
}

}  // namespace
