#include "OstrelProvider/logs_path.h"

#include <sys/stat.h>

#include <filesystem>

#include "OstrelProvider/config.h"
#include "support/host_test.h"

namespace {

using testing_support::HostTest;
using testing_support::Lines;

std::string not_found(const std::string& path) {
    return "ERROR get_logs_path: Unable to find [" + path + "], Setting Logs Path to default [/var/log/ostrel]";
}

class LogsPathTest : public HostTest {
protected:
    LogsPathTest() {
        for (const char* const folder : {"/vmfs/volumes/a", "/vmfs/volumes/b", "/vmfs/volumes/a b"}) {
            std::filesystem::create_directories(host->path(folder));
        }
    }
    std::string logs_path() {
        char path[LOG_FILENAME_SIZE];
        get_logs_path(path);
        return path;
    }
};

TEST_F(LogsPathTest, TheLastExactLineNamesTheFolder) {
    const std::string key = "ostrel_logs_path=";
    const std::string a = "/vmfs/volumes/a";
    const std::string longest = "/vmfs/volumes/" + std::string(77, 'd');
    std::filesystem::create_directories(host->path(longest));
    std::filesystem::create_directories(host->path(longest + "e"));
    const struct {
        std::string text;
        std::string path;     // empty: the default
        std::string missing;  // named by the message; "-": no message
    } cases[] = {
        {key + a + "\n", a, "-"},
        {key + a, a, "-"},
        {key + a + "\r\n", a, "-"},
        {key + a + "\tnote\n", a, "-"},
        {key + a + std::string("\0b\n", 3), a, "-"},
        {key + a + " b\n", a + " b", "-"},
        {key + a + " \n", "", a + " "},
        {key + " " + a + "\n", "", " " + a},
        {" " + key + a + "\n", "", ""},
        {"ostrel_logs_path =" + a + "\n", "", ""},
        {"ostrel_logs_path:" + a + "\n", "", ""},
        {"Ostrel_logs_path=" + a + "\n", "", ""},
        {"#" + key + a + "\n", "", ""},
        {"x" + key + a + "\n", "", ""},
        {"", "", ""},
        {"interval=60\n", "", ""},
        {key + a + "\n" + key + "/vmfs/volumes/b\n", "/vmfs/volumes/b", "-"},
        {key + a + "\n" + key + "/none\n", "", "/none"},
        {key + a + "\n" + key + "\n", a, "-"},     // 18 characters: no line of this key
        {key + a + "\n" + key + "/\n", "/", "-"},  // 19
        {key + a + "\n" + key + "/", a, "-"},
        {key + longest + "\n", longest, "-"},
        {key + longest + "e\n", "", longest + "e"},
        {key + std::string(100000, 'x') + "\n", "", std::string(238, 'x')},
        {std::string(255, 'x') + key + a + "\n", "", ""},
        {key + a + "/oxr\n", "", a + "/oxr"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text.substr(0, 100));
        host->write_file(OSTREL_CONFIG_FILE, each.text);
        const std::string path = each.path.empty() ? DEFAULT_LOG_DIR : each.path;
        EXPECT_EQ(logs_path(), path);
        EXPECT_EQ(said(), each.missing == "-" ? Lines() : Lines{not_found(each.missing)});
        char name[LOG_FILENAME_SIZE];
        EXPECT_EQ(get_log_filename(name), name);
        EXPECT_EQ(name, path + "/oxr.log");
        (void)said();
    }
}

TEST_F(LogsPathTest, AnUnreadableConfigurationGivesTheDefault) {
    EXPECT_EQ(logs_path(), DEFAULT_LOG_DIR);
    EXPECT_EQ(said(), Lines());
    std::filesystem::create_directories(host->path(OSTREL_CONFIG_FILE));
    EXPECT_EQ(logs_path(), DEFAULT_LOG_DIR);
}

TEST_F(HostTest, TheDefaultLogFolderIsMadeOnce) {
    OSTREL_CreateLogDir();
    EXPECT_EQ(said(), Lines{"INFO OSTREL_CreateLogDir: Log dir exists. No need to create."});

    std::filesystem::remove_all(host->path(DEFAULT_LOG_DIR));
    host->fail(testing_support::failing("mkdir"));
    OSTREL_CreateLogDir();
    EXPECT_FALSE(host->exists(DEFAULT_LOG_DIR));

    umask(0);
    OSTREL_CreateLogDir();
    EXPECT_EQ(said(), Lines{"INFO OSTREL_CreateLogDir: Log dir has been created."});
    struct stat status {};
    ASSERT_EQ(stat(host->path(DEFAULT_LOG_DIR).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0777U);
}

}  // namespace
