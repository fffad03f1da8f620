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
#include <functional>

#include "OstrelProviderSetting/config_writer.h"
#include "support/host_test.h"

namespace {

using testing_support::Lines;

constexpr char DEFAULT_PATH[] = "/var/log/ostrel";

// The canonical file with these values. The texts are kept beside this test, "@" where a value stands.
std::string canonical_text(const std::string& form, const ConfigValues& v = {}) {
    const std::string values[] = {std::to_string(v.interval),
                                  std::to_string(v.min_vol_sessions),
                                  std::to_string(v.max_vol_sessions),
                                  std::to_string(v.vol_sessions),
                                  std::to_string(v.min_pe_sessions),
                                  std::to_string(v.max_pe_sessions),
                                  std::to_string(v.log_level),
                                  std::to_string(v.vmknic_count),
                                  std::to_string(v.worker_stop),
                                  std::to_string(v.use_ostrel_timeouts),
                                  v.ostrel_logs_path};
    std::ifstream kept(OXR_SOURCE_DIR "/tests/OstrelProvider/canonical_" + form + ".txt");
    std::string text(std::istreambuf_iterator<char>(kept), {});
    std::size_t at = 0;
    for (const std::string& value : values) {
        at = text.find('@', at);
        text.replace(at, 1, value);
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

// One read of a file: what differs from the defaults, what is warned about, whether the file is rewritten.
struct Case {
    std::string text;
    std::function<void(ConfigValues&)> change = [](ConfigValues&) {};
    Lines warnings = {};
    bool rewritten = false;
};

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
    void create_or_convert() {
        const oxr::MutexLock lock(config_file_mutex);
        OSTREL_CreateConfigFile();
    }
    std::string file() const { return host->read_file(OSTREL_CONFIG_FILE); }
    void write(const std::string& text) { host->write_file(OSTREL_CONFIG_FILE, text); }

    // Reads each text, with lines behind it that leave no ground for a rewrite.
    void expect_reads(const std::vector<Case>& cases) {
        for (const Case& each : cases) {
            SCOPED_TRACE(each.text.substr(0, 80));
            const std::string text = each.text + "\nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n";
            write(text);
            values = {};
            std::memset(static_cast<void*>(&values), 0xee, sizeof values);
            EXPECT_EQ(read(), 0);
            ConfigValues expected;
            each.change(expected);
            EXPECT_EQ(as_text(values), as_text(expected));
            EXPECT_EQ(said("WARN"), each.warnings);
            EXPECT_EQ(file(), each.rewritten ? as_text(expected) : text);
            EXPECT_EQ(log_level, expected.log_level);
        }
    }
};

TEST_F(ConfigTest, EachKeyHasItsRange) {
    const auto none = [](ConfigValues&) {};
    std::vector<Case> cases = {
        {"min_vol_sessions=32\nmax_vol_sessions=32",
         [](auto& v) { v.min_vol_sessions = v.max_vol_sessions = 32; },
         {},
         false},
        {"min_vol_sessions=1", none, {invalid("min_vol_sessions", "1", "2")}, false},
        {"min_vol_sessions=33", none, {invalid("min_vol_sessions", "33", "2")}, false},
        {"max_vol_sessions=2", [](auto& v) { v.max_vol_sessions = 2; }, {}, false},
        {"max_vol_sessions=1", none, {invalid("max_volsessions", "1", "8")}, true},
        {"max_vol_sessions=33", none, {invalid("max_volsessions", "33", "8")}, true},
        {"min_pe_sessions=32", [](auto& v) { v.min_pe_sessions = 32; }, {}, false},
        {"min_pe_sessions=3", none, {invalid("min_pe_sessions", "3", "4")}, true},
        {"min_pe_sessions=33", none, {invalid("min_pe_sessions", "33", "4")}, true},
        {"max_pe_sessions=4", [](auto& v) { v.max_pe_sessions = 4; }, {}, false},
        {"max_pe_sessions=3", none, {invalid("max_pe_sessions", "3", "32")}, true},
        {"max_pe_sessions=33", none, {invalid("max_pe_sessions", "33", "32")}, true},
        {"log_level=2", [](auto& v) { v.log_level = 2; }, {}, false},
        {"log_level=0", none, {}, true},
        {"log_level=3", none, {}, true},
        {"worker_stop=-1", [](auto& v) { v.worker_stop = UINT32_MAX; }, {}, false},
        {"vmknic_count=99", [](auto& v) { v.vmknic_count = 99; }, {}, false},
    };
    const auto interval = [](std::uint32_t seconds) { return [=](ConfigValues& v) { v.interval = seconds; }; };
    for (const char* const text : {"60", " +60", "060s", "60=70", "60 70"}) {
        cases.push_back({std::string("interval=") + text, interval(60), {}, false});
    }
    cases.push_back({"interval=604800", interval(604800), {}, false});
    const std::pair<const char*, const char*> refused[] = {
        {"59", "59"},
        {"604801", "604801"},
        {"", "0"},
        {"abc", "0"},
        {"-60", "-60"},
        {"-", "0"},
        {"4294967356", "2147483647"},
        {"18446744073709551676", "2147483647"},
        {"-4294967236", "-2147483648"},
    };
    for (const auto& [text, number] : refused) {
        cases.push_back({std::string("interval=") + text, none, {invalid("interval", number, "120")}, true});
    }
    expect_reads(cases);
    for (const char* const number : {"2", "-1"}) {
        write(std::string("ostrel_logs_path=/var/log/ostrel\nuse_ostrel_timeouts=") + number + "\n");
        EXPECT_EQ(read(), 0);
        EXPECT_EQ(said("WARN"), Lines{invalid("use_ostrel_timeouts", number, "1")});
        EXPECT_EQ(file(), as_text({}));
    }
}

TEST_F(ConfigTest, ValuesAreHeldAgainstEachOther) {
    const auto relation = [](const char* min, const char* max) {
        return std::string("WARN OSTREL_GetConfigValues: Invalid value - min_vol_sessions = ") + min +
               ", max_volsessions = " + max + "  in oxr.conf.Changing min_vol_sesions to default value of 2.";
    };
    const auto outside = [](const char* min) {
        return std::string(
                   "WARN OSTREL_GetConfigValues: Invalid value - vol_sessions should be between "
                   "min_vol_sessions and max_vol_sessions.Changing to min_vol_sessions value of ") +
               min + ".";
    };
    const auto sessions = [](std::uint32_t number) { return [=](ConfigValues& v) { v.vol_sessions = number; }; };
    expect_reads({
        {"min_vol_sessions=6\nmax_vol_sessions=4", [](auto& v) { v.max_vol_sessions = 4; }, {relation("6", "4")}, true},
        {"min_vol_sessions=9", [](auto&) {}, {relation("9", "8")}, true},
        {"min_vol_sessions=8", [](auto& v) { v.min_vol_sessions = 8; }, {}, false},
        {"vol_sessions=2", sessions(2), {}, false},
        {"vol_sessions=8", sessions(8), {}, false},
        {"vol_sessions=0", sessions(0), {}, false},
        {"vol_sessions=1", sessions(2), {outside("2")}, true},
        {"vol_sessions=10", sessions(2), {outside("2")}, true},
        {"vol_sessions=-3", sessions(2), {outside("2")}, true},
        {"min_vol_sessions=5\nvol_sessions=4",
         [](auto& v) { v.min_vol_sessions = v.vol_sessions = 5; },
         {outside("5")},
         true},
        // The limits are settled first.
        {"vol_sessions=3\nmin_vol_sessions=6\nmax_vol_sessions=4",
         [](auto& v) {
             v.max_vol_sessions = 4;
             v.vol_sessions = 3;
         },
         {relation("6", "4")},
         true},
        {"vol_sessions=7\nmin_vol_sessions=6\nmax_vol_sessions=4",
         [](auto& v) {
             v.max_vol_sessions = 4;
             v.vol_sessions = 2;
         },
         {relation("6", "4"), outside("2")},
         true},
        {"min_vol_sessions=1\nmax_vol_sessions=99",
         [](auto&) {},
         {invalid("min_vol_sessions", "1", "2"), invalid("max_volsessions", "99", "8")},
         true},
    });
}

TEST_F(ConfigTest, LinesThatAreNoKeyAreIgnored) {
    const auto is_300 = [](ConfigValues& v) { v.interval = 300; };
    std::vector<Case> cases = {
        {"INTERVAL=300", is_300},
        {"interval=300\r", is_300},
        {"interval=200\ninterval=300", is_300},
        {"interval=1\ninterval=300", is_300, {invalid("interval", "1", "120")}, true},
        {"MIN_VOLSESSIONS=3\nMax_VolSessions=9\nvolsessions=4",
         [](auto& v) {
             v.min_vol_sessions = 3;
             v.max_vol_sessions = 9;
             v.vol_sessions = 4;
         }},
        {std::string(255, 'x') + "interval=300"},
        {std::string(300, '#') + "\ninterval=300", is_300},
        {std::string(100000, 'x') + "\ninterval=300", is_300},
        {"interval=300" + std::string(100000, ' '), is_300},
        {std::string("interval\0=300", 13)},
        {std::string(10 * 1024 * 1024, '\xff') + "\ninterval=300", is_300},
    };
    for (const char* const text :
         {" interval=300", "\tinterval=300", "interval =300", "#interval=300", " # interval=300", "interval:300",
          "interval", "=300", "=", "\xef\xbb\xbfinterval=300", "interva=300", "intervals=300", "minvol_sessions=3", "",
          "\r", "[section]"}) {
        cases.push_back({text});
    }
    expect_reads(cases);
}

TEST_F(ConfigTest, MissingTimeoutsOrLogsPathMeanARewrite) {
    for (const char* const text :
         {"\n", "# only a comment\n", "use_ostrel_timeouts=0\n", "interval=300", "ostrel_logs_path=/vmfs/volumes\n"}) {
        write(text);
        EXPECT_EQ(read(), 0);
        EXPECT_EQ(file(), as_text(values)) << text;
        EXPECT_EQ(values.interval, std::string_view(text) == "interval=300" ? 300U : 120U);
        EXPECT_EQ(values.use_ostrel_timeouts, std::string_view(text).starts_with("use") ? 0U : 1U);
        EXPECT_STREQ(values.ostrel_logs_path,
                     std::string_view(text).starts_with("ost") ? "/vmfs/volumes" : DEFAULT_PATH);
    }
    EXPECT_EQ(said("WARN"), Lines());
}

TEST_F(ConfigTest, TheKnicCountIsToldAtEachRead) {
    write("vmknic_count=7\nvmknic_count=3\n");
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(said("INFO"), (Lines{"INFO OSTREL_GetConfigValues: vmknic count read from oxr.conf file = 7",
                                   "INFO OSTREL_GetConfigValues: vmknic count read from oxr.conf file = 3"}));
}

TEST_F(ConfigTest, EveryKeySurvivesAndTheRewrittenFormIsAFixedPoint) {
    ConfigValues other;
    other.interval = 300;
    other.min_vol_sessions = 3;
    other.max_vol_sessions = 30;
    other.vol_sessions = 29;
    other.worker_stop = 1;
    other.log_level = 2;
    other.vmknic_count = 5;
    other.min_pe_sessions = 6;
    other.max_pe_sessions = 31;
    other.use_ostrel_timeouts = 0;
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

// A negative value without a range stays what it became at the first read.
TEST_F(ConfigTest, AValueThatWasNegativeSurvivesTheRewrite) {
    write("worker_stop=-1\nvmknic_count=-7\n");
    for (int reads = 0; reads < 2; ++reads) {
        EXPECT_EQ(read(), 0);
        EXPECT_EQ(values.worker_stop, 4294967295U);
        EXPECT_EQ(values.vmknic_count, 4294967289U);
        EXPECT_EQ(file(), as_text(values));
    }
}

TEST_F(ConfigTest, WritingTakesTheWidestValues) {
    std::memset(static_cast<void*>(&values), 0xff, sizeof values);
    std::memset(values.ostrel_logs_path, 'p', sizeof values.ostrel_logs_path);  // no terminator
    EXPECT_EQ(rewrite(values), 0);
    EXPECT_EQ(values.log_level, 1U);
    EXPECT_NE(file().find("interval=4294967295\n"), std::string::npos);
    EXPECT_TRUE(file().ends_with("ostrel_logs_path=" + std::string(100, 'p') + "\n\n"));
}

TEST_F(ConfigTest, CreationMakesFolderAndFile) {
    umask(0);
    std::filesystem::remove_all(host->path(OSTREL_CONFIG_DIR));
    create_or_convert();
    EXPECT_EQ(
        said(),
        (Lines{"INFO OSTREL_CreateConfigFile: Creating config dir. /etc/ostrel",
               "INFO OSTREL_CreateConfigFile: Config dir has been created.",
               "INFO OSTREL_CreateConfigFile: Config file does NOT exist. Create the file with default settings"}));
    EXPECT_EQ(file(), canonical_text("created"));
    struct stat status {};
    ASSERT_EQ(stat(host->path(OSTREL_CONFIG_DIR).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0777U);

    create_or_convert();
    EXPECT_EQ(said(), (Lines{"INFO OSTREL_CreateConfigFile: Config dir exists. No need to create.",
                             "INFO OSTREL_CreateConfigFile: Config file exists. No need to create"}));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(as_text(values), as_text({}));
    EXPECT_EQ(file(), canonical_text("created"));
}

TEST_F(ConfigTest, CreationTellsItsFailures) {
    const std::string dir = "INFO OSTREL_CreateConfigFile: Config dir exists. No need to create.";
    const std::string absent =
        "INFO OSTREL_CreateConfigFile: Config file does NOT exist. Create the file with default settings";
    host->fail(testing_support::failing_with("open", EROFS, "oxr.conf"));
    create_or_convert();
    EXPECT_EQ(said(), (Lines{dir, absent, "ERROR OSTREL_CreateConfigFile: Read-only file system, fopen() failed"}));
    EXPECT_FALSE(host->exists(OSTREL_CONFIG_FILE));

    std::filesystem::remove_all(host->path(OSTREL_CONFIG_DIR));
    host->fail(testing_support::failing_with("mkdir", ENOSPC));
    create_or_convert();
    EXPECT_EQ(said(), (Lines{"INFO OSTREL_CreateConfigFile: Creating config dir. /etc/ostrel",
                             "ERROR OSTREL_CreateConfigFile: No space left on device, Config dir was not created",
                             absent, "ERROR OSTREL_CreateConfigFile: No such file or directory, fopen() failed"}));
}

TEST_F(ConfigTest, AFileWithoutCommentsIsConverted) {
    const auto converted = [](std::uint32_t sessions) {
        ConfigValues v;
        v.vol_sessions = sessions;
        return as_text(v);
    };
    const struct {
        std::string text;
        std::string after;
        Lines warnings;
    } cases[] = {
        {"interval:300\nvol_sessions:4\nvmknic_count:6\n", converted(4), {invalid("interval", "300", "120")}},
        {"interval:60\nVolSessions: 5\n", converted(5), {invalid("interval", "60", "120")}},
        {"interval=300\nvol_sessions=4\n", converted(0), {}},
        {"\n\n", converted(0), {}},
        {std::string(100000, '\x01'), converted(0), {}},
        {"vol_sessions:4:5", converted(4), {}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text.substr(0, 50));
        write(each.text);
        create_or_convert();
        EXPECT_EQ(file(), each.after);
        const std::string log = host->log();
        EXPECT_EQ(log.find("vmknic count read from oxr.conf file = 0") != std::string::npos,
                  each.text.find("vmknic") != std::string::npos);
        Lines lines = said();
        EXPECT_EQ(lines.back(), "INFO OSTREL_CreateConfigFile: Converted existing oxr.conf to new format.");
        std::erase_if(lines, [](const std::string& line) { return !line.starts_with("WARN"); });
        EXPECT_EQ(lines, each.warnings);
    }
    write("interval:300\n \t# a comment makes it the current format\n");
    create_or_convert();
    EXPECT_EQ(said().back(), "INFO OSTREL_CreateConfigFile: Config file exists. No need to create");
}

TEST_F(ConfigTest, AFileThatCannotBeSeenIsNotTakenForAbsent) {
    for (const int error : {EIO, EACCES, ELOOP}) {
        const std::string text = "# by hand\nvol_sessions=4\n";
        write(text);
        host->fail(testing_support::failing_with("access", error, "oxr.conf"));
        create_or_convert();
        EXPECT_EQ(file(), text) << error;
        EXPECT_EQ(said().back(), "INFO OSTREL_CreateConfigFile: Config file exists. No need to create");
    }
}

TEST_F(ConfigTest, AFileThatCannotBeConvertedStaysAsItWas) {
    const std::string failed =
        "ERROR OSTREL_CreateConfigFile: Failed to convert oxr.conf to new format, using internal defaults.";
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
        create_or_convert();
        EXPECT_EQ(said().back(), failed);
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
    create_or_convert();
    EXPECT_EQ(said().back(), failed);
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
            by_creation ? create_or_convert() : (void)rewrite(values);
            EXPECT_NE(said().back().find("No space left on device, writing oxr.conf failed"), std::string::npos);
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
