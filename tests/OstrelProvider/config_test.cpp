#include "OstrelProvider/config.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "OstrelProviderSetting/config_writer.h"
#include "configuration/config_keys.h"
#include "shared/config_file.h"
#include "support/golden.h"
#include "support/host_test.h"

namespace {

using namespace testing_support;

// The canonical file with these values. The texts are kept beside this test, "@" where a value stands.
std::string canonical_text(const std::string& form, const ConfigValues& values = {}) {
    std::ifstream kept(OXR_SOURCE_DIR "/tests/OstrelProvider/canonical_" + form + ".txt");
    std::string text(std::istreambuf_iterator<char>(kept), {});
    std::size_t at = 0;
    for (const ConfigKey& key : config_keys) {
        at = text.find('@', at);
        text.replace(at, 1, shared::value_text(key, values));
    }
    return text;
}

std::string as_text(const ConfigValues& values) {
    return canonical_text("rewritten", values);
}

class ConfigTest : public HostTest {
protected:
    ConfigValues values;

    int read() {
        const oxr::MutexLock lock(config_file_mutex);
        return OSTREL_GetConfigValues(&values, CONFIG_NORMAL);
    }
    int rewrite(ConfigValues& record) {
        const oxr::MutexLock lock(config_file_mutex);
        return set_value_in_file(&record);
    }
    void create() {
        const oxr::MutexLock lock(config_file_mutex);
        OSTREL_CreateConfigFile();
    }
    std::string file() const { return host->read_file(OSTREL_CONFIG_FILE); }
    void write(const std::string& text) { host->write_file(OSTREL_CONFIG_FILE, text); }
};

// What is said meanwhile is held against the log of the test's name.
class LoggedConfigTest : public ConfigTest {
protected:
    Golden golden{"OstrelProvider", ::testing::UnitTest::GetInstance()->current_test_info()->name()};

    void TearDown() override {
        golden.add_log(*host);
        ConfigTest::TearDown();
    }
};

TEST_F(LoggedConfigTest, TheLogTellsWhatIsCorrected) {
    write(std::string(100000, 'x') + "\ninterval=5\nlog_level=3\nMIN_VOLSESSIONS=9\nvolsessions=1\nvmknic_count=3\n");
    EXPECT_EQ(read(), 0);
    ConfigValues expected;
    expected.vol_sessions = 2;
    expected.vmknic_count = 3;
    EXPECT_EQ(as_text(values), as_text(expected));
    EXPECT_EQ(file(), as_text(expected));
}

TEST_F(ConfigTest, EveryKeySurvivesAndTheRewrittenFormIsAFixedPoint) {
    std::uint32_t number = 0;
    for (const auto field :
         {&ConfigValues::use_ostrel_timeouts, &ConfigValues::worker_stop, &ConfigValues::log_level,
          &ConfigValues::min_vol_sessions, &ConfigValues::vol_sessions, &ConfigValues::max_vol_sessions,
          &ConfigValues::min_pe_sessions, &ConfigValues::max_pe_sessions, &ConfigValues::vmknic_count}) {
        values.*field = number++;
    }
    values.interval = 300;
    std::strcpy(values.ostrel_logs_path, "/vmfs/volumes");
    const std::string expected = as_text(values);
    EXPECT_EQ(rewrite(values), 0);
    EXPECT_EQ(file(), expected);
    values = {};
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(as_text(values), expected);
    EXPECT_EQ(file(), expected);
}

TEST_F(LoggedConfigTest, CreationMakesFolderAndFileOrTellsItsFailures) {
    umask(0);
    std::filesystem::remove_all(host->path(OSTREL_CONFIG_DIR));
    host->fail(failing_with("mkdir", ENOSPC));
    create();
    create();
    EXPECT_EQ(file(), canonical_text("created"));
    EXPECT_EQ(std::filesystem::status(host->path(OSTREL_CONFIG_DIR)).permissions(), std::filesystem::perms::all);
    create();
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(as_text(values), as_text({}));
    EXPECT_EQ(file(), canonical_text("created"));
}

TEST_F(LoggedConfigTest, AFileWithoutCommentsIsConverted) {
    write("interval:300\nvol_sessions:4\nvmknic_count:6\n");
    create();
    ConfigValues expected;
    expected.vol_sessions = 4;
    EXPECT_EQ(file(), as_text(expected));
}

// Nor is an emptied file one of the old format, at a start: what was in force stays in force.
TEST_F(LoggedConfigTest, AnUnreadableOrEmptiedFileLeavesTheRecordAlone) {
    values.interval = 777;
    EXPECT_EQ(read(), -1);
    write("log_level=2\ninterval=300\n" + std::string(5000, 'x') + "\n");
    host->fail(failing("read", 2));
    EXPECT_EQ(read(), -1);
    write("");
    EXPECT_EQ(read(), -1);
    create();
    EXPECT_EQ(file(), "");
    EXPECT_EQ(values.interval, 777U);
    EXPECT_EQ(log_level, 1U);
}

// The values are corrected all the same.
TEST_F(LoggedConfigTest, AFailedRewriteKeepsTheFile) {
    const std::string text = "worker_stop=1\nlog_level=2\ninterval=5\n" + std::string(3000, '#') + "\nvol_sessions=3\n";
    for (simhost::Fault fault : {failing("open", 2), failing("read", 3), failing("write"), failing("ftruncate")}) {
        golden.heading(fault.operation);
        write(text);
        fault.path_contains = "oxr.conf";
        host->fail(fault);
        values = {};
        EXPECT_EQ(read(), -1);
        EXPECT_EQ(values.interval + values.worker_stop + log_level, 120U + 1 + 2);
        EXPECT_EQ(file(), text);
        golden.add_log(*host);
    }
}

// Killed at any moment of a rewrite, whether the text grows or shrinks, it leaves the one of before or of after; line
// feeds behind it say nothing.
TEST_F(ConfigTest, AKilledRewriteLeavesAWholeText) {
    ConfigValues other;
    other.interval = 604800;
    std::strcpy(other.ostrel_logs_path, "/vmfs/volumes/a datastore/logs");
    for (int microseconds = 500; microseconds < 1500; microseconds += 10) {
        write(as_text(values));
        const pid_t child = fork();
        while (child == 0) {
            (void)rewrite(other);
            (void)rewrite(values);
        }
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds);
        while (std::chrono::steady_clock::now() < end) {
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        std::string left = file();
        left.erase(left.find_last_not_of('\n') + 1);
        left += "\n\n";
        EXPECT_TRUE(left == as_text(values) || left == as_text(other)) << left;
    }
}

}  // namespace
