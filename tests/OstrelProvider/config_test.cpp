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
#include "support/host_test.h"

namespace {

using testing_support::Lines;

const std::string dir_exists = "INFO Config dir exists. No need to create.";
const std::string file_exists = "INFO Config file exists. No need to create";
const std::string absent = "INFO Config file does NOT exist. Create the file with default settings";

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

std::string invalid(const std::string& key, const std::string& value, const std::string& replacement) {
    return "WARN OSTREL_GetConfigValues: Invalid value - " + key + " = " + value +
           " in oxr.conf.Changing to default value of " + replacement + ".";
}

class ConfigTest : public testing_support::HostTest {
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
    // What the creation says, without its name.
    Lines create_or_convert() {
        const oxr::MutexLock lock(config_file_mutex);
        OSTREL_CreateConfigFile();
        Lines lines = said();
        for (std::string& line : lines) {
            constexpr std::string_view name = "OSTREL_CreateConfigFile: ";
            const std::size_t at = line.find(name);
            line.erase(std::min(at, line.size()), at != std::string::npos ? name.size() : 0);
        }
        return lines;
    }
    std::string file() const { return host->read_file(OSTREL_CONFIG_FILE); }
    void write(const std::string& text) { host->write_file(OSTREL_CONFIG_FILE, text); }
};

TEST_F(ConfigTest, TheLogTellsWhatIsCorrected) {
    write(std::string(100000, 'x') + "\ninterval=5\nlog_level=3\nMIN_VOLSESSIONS=9\nvolsessions=1\nvmknic_count=3\n");
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(said(), (Lines{invalid("interval", "5", "120"),
                             "INFO OSTREL_GetConfigValues: vmknic count read from oxr.conf file = 3",
                             "WARN OSTREL_GetConfigValues: Invalid value - min_vol_sessions = 9, max_volsessions = 8  "
                             "in oxr.conf.Changing min_vol_sesions to default value of 2.",
                             "WARN OSTREL_GetConfigValues: Invalid value - vol_sessions should be between "
                             "min_vol_sessions and max_vol_sessions.Changing to min_vol_sessions value of 2."}));
    ConfigValues expected;
    expected.vol_sessions = 2;
    expected.vmknic_count = 3;
    EXPECT_EQ(as_text(values), as_text(expected));
    EXPECT_EQ(file(), as_text(expected));
    for (const std::string text : {"\n", "use_ostrel_timeouts=0\n", "ostrel_logs_path=/vmfs/volumes\n"}) {
        write(text);
        EXPECT_EQ(read(), 0);
        EXPECT_STREQ(values.ostrel_logs_path, text.starts_with("ost") ? "/vmfs/volumes" : "/var/log/ostrel");
        EXPECT_EQ(file(), as_text(values)) << text;
    }
    EXPECT_EQ(said(), Lines());
}

TEST_F(ConfigTest, EveryKeySurvivesAndTheRewrittenFormIsAFixedPoint) {
    ConfigValues other;
    std::uint32_t number = 0;
    for (const auto field :
         {&ConfigValues::use_ostrel_timeouts, &ConfigValues::worker_stop, &ConfigValues::log_level,
          &ConfigValues::min_vol_sessions, &ConfigValues::vol_sessions, &ConfigValues::max_vol_sessions,
          &ConfigValues::min_pe_sessions, &ConfigValues::max_pe_sessions, &ConfigValues::vmknic_count}) {
        other.*field = number++;
    }
    other.interval = 300;
    std::strcpy(other.ostrel_logs_path, "/vmfs/volumes");
    EXPECT_EQ(rewrite(other), 0);
    EXPECT_EQ(file(), as_text(other));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(as_text(values), as_text(other));
    EXPECT_EQ(file(), as_text(other));
    EXPECT_EQ(rewrite(values), 0);
    EXPECT_EQ(file(), as_text(other));
    EXPECT_EQ(said("WARN"), Lines());
}

TEST_F(ConfigTest, CreationMakesFolderAndFile) {
    umask(0);
    std::filesystem::remove_all(host->path(OSTREL_CONFIG_DIR));
    EXPECT_EQ(create_or_convert(),
              (Lines{"INFO Creating config dir. /etc/ostrel", "INFO Config dir has been created.", absent}));
    EXPECT_EQ(file(), canonical_text("created"));
    struct stat status {};
    ASSERT_EQ(stat(host->path(OSTREL_CONFIG_DIR).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0777U);

    EXPECT_EQ(create_or_convert(), (Lines{dir_exists, file_exists}));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(as_text(values), as_text({}));
    EXPECT_EQ(file(), canonical_text("created"));
}

TEST_F(ConfigTest, CreationTellsItsFailures) {
    host->fail(testing_support::failing_with("open", EROFS, "oxr.conf"));
    EXPECT_EQ(create_or_convert(), (Lines{dir_exists, absent, "ERROR Read-only file system, fopen() failed"}));
    EXPECT_FALSE(host->exists(OSTREL_CONFIG_FILE));

    std::filesystem::remove_all(host->path(OSTREL_CONFIG_DIR));
    host->fail(testing_support::failing_with("mkdir", ENOSPC));
    EXPECT_EQ(create_or_convert(), (Lines{"INFO Creating config dir. /etc/ostrel",
                                          "ERROR No space left on device, Config dir was not created", absent,
                                          "ERROR No such file or directory, fopen() failed"}));
}

TEST_F(ConfigTest, AFileWithoutCommentsIsConverted) {
    for (const std::string text : {"interval:300\nvol_sessions:4\nvmknic_count:6\n", "vol_sessions=4\n"}) {
        ConfigValues expected;
        Lines lines = {dir_exists, "INFO Converted existing oxr.conf to new format."};
        if (text.starts_with("interval")) {
            expected.vol_sessions = 4;
            lines.insert(lines.begin() + 1, {invalid("interval", "300", "120"),
                                             "INFO OSTREL_GetConfigValues: vmknic count read from oxr.conf file = 0"});
        }
        write(text);
        EXPECT_EQ(create_or_convert(), lines) << text;
        EXPECT_EQ(file(), as_text(expected)) << text;
    }
    write("interval:300\n \t# a comment makes it the current format\n");
    EXPECT_EQ(create_or_convert().back(), file_exists);
}

TEST_F(ConfigTest, AFileThatCannotBeSeenIsNotTakenForAbsent) {
    for (const int error : {EIO, EACCES, ELOOP}) {
        const std::string text = "# by hand\nvol_sessions=4\n";
        write(text);
        host->fail(testing_support::failing_with("access", error, "oxr.conf"));
        EXPECT_EQ(create_or_convert().back(), file_exists);
        EXPECT_EQ(file(), text) << error;
    }
}

TEST_F(ConfigTest, AFileThatCannotBeConvertedStaysAsItWas) {
    const std::string failed = "ERROR Failed to convert oxr.conf to new format, using internal defaults.";
    const std::string current = canonical_text("created");
    const struct {
        std::string text;
        simhost::Fault fault;
    } cases[] = {
        {current, testing_support::failing("open", 1)},  // unreadable for a moment only: not an old file
        {current, testing_support::failing("read", 1)},
        {"interval:300\n", testing_support::failing("open", 2)},
        {"interval:300\n", testing_support::failing("read", 3)},
        {"interval:300\n", testing_support::failing("open", 3)},
    };
    for (const auto& each : cases) {
        write(each.text);
        simhost::Fault fault = each.fault;
        fault.path_contains = "oxr.conf";
        host->fail(fault);
        EXPECT_EQ(create_or_convert().back(), failed);
        EXPECT_EQ(file(), each.text);
        if (each.text != current) {  // nor does the worker's next reading write defaults over it
            EXPECT_EQ(read(), -1);
            EXPECT_EQ(said().back(),
                      "ERROR OSTREL_GetConfigValues: oxr.conf is in the old format and has not been converted. Leaving "
                      "it as it is.");
            EXPECT_EQ(file(), each.text);
        }
    }
    host->remove_file(OSTREL_CONFIG_FILE);
    std::filesystem::create_directories(host->path(OSTREL_CONFIG_FILE));
    EXPECT_EQ(create_or_convert().back(), failed);
}

TEST_F(ConfigTest, AnUnreadableFileLeavesTheRecordAlone) {
    values.interval = 777;
    EXPECT_EQ(read(), -1);
    EXPECT_EQ(said(), Lines{"ERROR OSTREL_GetConfigValues: No such file or directory, fopen() failed on oxr.conf."});
    std::filesystem::create_directories(host->path(OSTREL_CONFIG_FILE));
    EXPECT_EQ(read(), -1);
    host->remove_file(OSTREL_CONFIG_FILE);
    const std::string text = "log_level=2\ninterval=300\n" + std::string(5000, 'x') + "\n";
    write(text);
    for (std::uint64_t nth = 1; nth <= 2; ++nth) {
        host->fail(testing_support::failing("read", nth));
        EXPECT_EQ(read(), -1);
    }
    EXPECT_EQ(values.interval, 777U);
    EXPECT_EQ(log_level, 1U);
    EXPECT_EQ(file(), text);
}

// The file keeps its text, byte for byte; the values are corrected all the same.
TEST_F(ConfigTest, AFailedRewriteLosesNothing) {
    const std::string written = "No space left on device, writing oxr.conf failed";
    const std::string short_text = "# by hand\nworker_stop=1\nlog_level=2\ninterval=5\n";
    const std::string longer = short_text + std::string(3000, '#') + "\n";
    const std::string longest = short_text + std::string(9000, '#') + "\nvol_sessions=3";
    const struct {
        std::string text;
        const char* operation;
        std::uint64_t nth;
        int error;
        std::size_t short_by;
        std::string message;
    } cases[] = {
        {short_text, "open", 2, EACCES, 0, "fopen of oxr.conf returned NULL"},  // reading opens it first

        {short_text, "read", 3, EIO, 0, "Input/output error, writing oxr.conf failed"},
        {short_text, "write", 1, ENOSPC, 0, written},
        {short_text, "write", 1, 0, 7, written},
        {short_text, "write", 2, 0, 7, written},
        {longer, "write", 1, ENOSPC, 0, written},
        {longer, "write", 1, 0, 7, written},
        {longer, "ftruncate", 1, ENOSPC, 0, written},
        {longest, "write", 1, 0, 7, written},
        {longest, "ftruncate", 1, ENOSPC, 0, written},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(std::to_string(each.text.size()) + " " + each.operation + " " + std::to_string(each.nth));
        write(each.text);
        simhost::Fault fault = testing_support::failing_with(each.operation, each.error, "oxr.conf");
        fault.nth = each.nth;
        fault.short_by = each.short_by;
        const std::uint64_t met = host->faults_injected();
        host->fail(fault);
        values = {};
        EXPECT_EQ(read(), -1);
        EXPECT_EQ(host->faults_injected(), met + 1);
        EXPECT_EQ(said(), (Lines{invalid("interval", "5", "120"), "ERROR set_value_in_file: " + each.message,
                                 "ERROR OSTREL_GetConfigValues: failed to set values in oxr.conf"}));
        EXPECT_EQ(values.interval, 120U);
        EXPECT_EQ(values.worker_stop, 1U);
        EXPECT_EQ(log_level, 2U);
        EXPECT_TRUE(file() == each.text) << file();
        host->clear_faults();
        EXPECT_EQ(read(), 0);
        EXPECT_EQ(file(), as_text(values));
        (void)said();
    }
}

// What a client's write makes of a file that isn't there is taken away again.
TEST_F(ConfigTest, AFileThatCannotBeCreatedWholeIsNotThere) {
    for (const std::size_t short_by : {0, 7}) {
        for (const bool by_creation : {true, false}) {
            simhost::Fault fault = testing_support::failing_with("write", ENOSPC, "oxr.conf");
            fault.short_by = short_by;
            host->fail(fault);
            const int rewritten = by_creation ? -1 : rewrite(values);
            EXPECT_EQ(rewritten, -1);
            const Lines lines = by_creation ? create_or_convert() : said();
            EXPECT_TRUE(lines.back().ends_with("No space left on device, writing oxr.conf failed"));
            EXPECT_FALSE(host->exists(OSTREL_CONFIG_FILE));
        }
    }
}

// Killed at any moment of a rewrite, whether the text grows or shrinks, it leaves the one of before or of after; line
// feeds behind it say nothing.
TEST_F(ConfigTest, AKilledRewriteLeavesAWholeText) {
    ConfigValues other;
    values.worker_stop = other.worker_stop = 1;
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

// Nor for one of the old format, at a start: what was in force stays in force.
TEST_F(ConfigTest, AnEmptiedFileIsNotTakenForValues) {
    write("");
    values.worker_stop = 1;
    EXPECT_EQ(read(), -1);
    const std::string empty =
        "ERROR OSTREL_GetConfigValues: No data available, reading oxr.conf failed. Keeping the previous values.";
    EXPECT_EQ(said(), Lines{empty});
    EXPECT_EQ(values.worker_stop, 1U);
    OSTREL_CreateConfigFile();
    EXPECT_EQ(said("ERROR"), (Lines{empty,
                                    "ERROR OSTREL_CreateConfigFile: Failed to convert oxr.conf to new format, "
                                    "using internal defaults."}));
    EXPECT_EQ(file(), "");
}

TEST_F(ConfigTest, TheWriterSettlesTheLevelInTheCallersRecordAlways) {
    const std::pair<std::uint32_t, std::uint32_t> levels[] = {{0, 1}, {1, 1}, {2, 2}, {3, 1}, {UINT32_MAX, 1}};
    for (const bool open_fails : {false, true}) {
        for (const auto& [given, kept] : levels) {
            if (open_fails) {
                host->fail(testing_support::failing("open"));
            }
            values.log_level = given;
            EXPECT_EQ(rewrite(values), open_fails ? -1 : 0);
            EXPECT_EQ(values.log_level, kept);
        }
    }
}

}  // namespace
