#define OXR_MODULE "tests"
#include "OstrelProvider/log.h"

#include <cerrno>
#include <cstdlib>
#include <map>
#include <thread>

#include "support/engine.h"
#include "support/host_test.h"
#include "support/log_lines.h"

namespace {

using testing_support::Lines;

constexpr char LOG[] = "/var/log/ostrel/oxr.log";
constexpr char OLDER[] = "/var/log/ostrel/oxr.log.1";
constexpr std::size_t LIMIT = 2097152;

class LogTest : public testing_support::HostTest {
protected:
    LogTest() { setenv("TZ", "UTC", 1); }
};

TEST_F(LogTest, LinesHaveTheStandardPrefix) {
    OXR_INFO("text %d", 5);
    const int line = __LINE__ - 1;
    OXR_WARN_IN("operation", "no arguments: 100%%");
    EXPECT_EQ(host->log(), "Tue Nov  14 22:13:20 2023: INFO: tests: TestBody:" + std::to_string(line) +
                               " : text 5\nTue Nov  14 22:13:20 2023: WARN: tests: operation:" +
                               std::to_string(line + 2) + " : no arguments: 100%\n");
}

TEST_F(LogTest, TimeMovesOnInEveryThread) {
    setenv("TZ", "Nowhere", 1);  // UTC, after a zone file that can't be opened
    errno = EBUSY;
    const std::string before = get_time();
    EXPECT_EQ(errno, EBUSY) << "a message names it after the time";
    host->advance(0.9);
    EXPECT_EQ(get_time(), before);
    host->advance(0.1 + 17.0 * 86400 + 6399);
    EXPECT_STREQ(get_time(), "Sat Dec  02 00:00:00 2023");
    std::thread([] { EXPECT_STREQ(get_time(), "Sat Dec  02 00:00:00 2023"); }).join();
}

TEST_F(LogTest, LevelsAreFilteredAndDebuggingIsNotEvaluated) {
    for (const std::uint32_t level : {0U, 1U, 2U}) {
        log_level = level;
        int evaluated = 0;
        OXR_ERROR("e%d", ++evaluated);
        OXR_WARN("w%d", ++evaluated);
        OXR_INFO("i%d", ++evaluated);
        OXR_DEBUG("d%d", ++evaluated);
        const Lines all{"ERROR TestBody: e1", "WARN TestBody: w2", "INFO TestBody: i3", "DEBUG TestBody: d4"};
        EXPECT_EQ(said(), Lines(all.begin(), all.begin() + 2 + level));
        EXPECT_EQ(evaluated, level < 2 ? 3 : 4);
    }
}

TEST_F(LogTest, OtherComponentsLogWithoutAFilter) {
    log_level = 0;
    const char* const words[] = {"INFO", "INFO", "WARNING", "ERROR", "INFO"};
    for (int level = 0; level < 5; ++level) {
        oxr_log(level, "level %d", level);
        EXPECT_TRUE(
            host->log().ends_with(std::string("2023: ") + words[level] + ": level " + std::to_string(level) + "\n"));
    }
}

TEST_F(LogTest, LongMessagesAreWrittenWhole) {
    for (const std::size_t size : {2046U, 2047U, 100000U}) {
        host->remove_file(LOG);
        const std::string text(size, 'x');
        oxr_log_to_file(0, "%s%d\n", text.c_str(), 7);
        oxr_log(3, "%s%d", text.c_str(), 8);
        EXPECT_TRUE(host->log() == text + "7\nTue Nov 14 22:13:20 2023: ERROR: " + text + "8\n") << size;
    }
}

TEST_F(LogTest, AnInterruptedWriteIsFinished) {
    simhost::Fault part = testing_support::failing("write");
    part.short_by = 4;
    host->fail(part);
    host->fail(testing_support::errno_fault("write", EINTR, 2));
    oxr_log_to_file(0, "whole line\n");
    EXPECT_EQ(host->log(), "whole line\n");
}

TEST_F(LogTest, RotatesAboveTwoMebibytesAndKeepsSixOlderFiles) {
    const std::string name = "/vmfs/volumes/" + std::string(77, 'd') + "/oxr.log";  // as long as one can be
    const auto older = [&](int number) { return host->read_file(name + "." + std::to_string(number)); };
    set_log_filename(name.c_str());
    const std::string full(LIMIT, 'x');
    host->write_file(name, full);
    oxr_log_to_file(0, "y");
    EXPECT_TRUE(host->read_file(name) == full + "y") << "not above the limit";
    for (const int number : {1, 2, 4, 5, 6}) {
        host->write_file(name + "." + std::to_string(number), "old " + std::to_string(number));
    }
    oxr_log_to_file(0, "next\n");
    EXPECT_EQ(older(6), "old 5");
    EXPECT_EQ(older(5), "old 4");
    EXPECT_EQ(older(4), "old 4");  // copied, and no younger file to take its place
    EXPECT_EQ(older(3), "old 2");
    EXPECT_EQ(older(2), "old 1");
    EXPECT_TRUE(older(1) == full + "y");
    EXPECT_FALSE(host->exists(name + ".7"));
    EXPECT_EQ(host->read_file(name), "next\n");
}

TEST_F(LogTest, ThreadsNeverInterleaveAlsoWhileRotating) {
    const auto text_of = [](int i, char who) { return std::string(static_cast<std::size_t>(1 + i * 7 % 900), who); };
    const auto log_all = [&](char who) {
        for (int i = 0; i < 300; ++i) {
            OXR_INFO_IN("operation", "%s", text_of(i, who).c_str());
        }
    };
    host->write_file(LOG, std::string(LIMIT - 100000, '.') + "\n");
    std::thread other(log_all, 'b');
    log_all('a');
    other.join();
    EXPECT_TRUE(host->exists(OLDER));
    std::map<char, int> found;
    for (const auto& line : testing_support::parse_log(host->read_file(OLDER) + host->log())) {
        const char who = line.text[0];
        EXPECT_TRUE(who == '.' || line.text == text_of(found[who], who));
        ++found[who];
    }
    EXPECT_EQ(found['a'] + found['b'], 600);
}

}  // namespace
