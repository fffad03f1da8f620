#define OXR_MODULE "tests"
#include "OstrelProvider/log.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <thread>

#include "support/host_test.h"

namespace {

using testing_support::Lines;

constexpr char LOG[] = "/var/log/ostrel/oxr.log";
constexpr std::size_t LIMIT = 2097152;

class LogTest : public testing_support::HostTest {
protected:
    LogTest() { setenv("TZ", "UTC", 1); }
    std::string older(int number) const { return host->read_file(LOG + std::string(".") + std::to_string(number)); }
    bool has_older(int number) const { return host->exists(LOG + std::string(".") + std::to_string(number)); }
};

TEST_F(LogTest, LinesHaveTheStandardPrefix) {
    OXR_INFO("text %d", 5);
    const int line = __LINE__ - 1;
    OXR_WARN_IN("operation", "no arguments: 100%%");
    EXPECT_EQ(host->log(), "Tue Nov  14 22:13:20 2023: INFO: tests: TestBody:" + std::to_string(line) +
                               " : text 5\nTue Nov  14 22:13:20 2023: WARN: tests: operation:" +
                               std::to_string(line + 2) + " : no arguments: 100%\n");
}

TEST_F(LogTest, TimeIsLocalAndMovesOn) {
    setenv("TZ", "Nowhere", 1);  // UTC, after a zone file that can't be opened
    errno = EBUSY;
    const std::string before = get_time();
    EXPECT_EQ(errno, EBUSY) << "a message names it after the time";
    EXPECT_EQ(before, "Tue Nov  14 22:13:20 2023");
    host->advance(0.9);
    EXPECT_EQ(get_time(), before);
    host->advance(0.1);
    EXPECT_STREQ(get_time(), "Tue Nov  14 22:13:21 2023");
    host->advance(17.0 * 86400 + 6399);
    EXPECT_STREQ(get_time(), "Sat Dec  02 00:00:00 2023");
    std::string other;
    std::thread([&] { other = get_time(); }).join();
    EXPECT_EQ(other, "Sat Dec  02 00:00:00 2023");
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
    oxr_log_to_file(3, "above\n");
    oxr_log_to_file(UINT32_MAX, "above\n");
    EXPECT_EQ(host->log(), "");
}

TEST_F(LogTest, LongMessagesAreWrittenWhole) {
    for (const std::size_t size : {2046U, 2047U, 2048U, 8191U, 8192U, 100000U}) {
        host->write_file(LOG, "");
        oxr_log_to_file(0, "%s%d\n", std::string(size, 'x').c_str(), 7);
        oxr_log(3, "%s%d", std::string(size, 'y').c_str(), 8);
        EXPECT_TRUE(host->log() ==
                    std::string(size, 'x') + "7\nTue Nov 14 22:13:20 2023: ERROR: " + std::string(size, 'y') + "8\n")
            << size;
    }
}

TEST_F(LogTest, AFileThatGoesAwayComesBack) {
    oxr_log_to_file(0, "one\n");
    host->remove_file(LOG);
    oxr_log_to_file(0, "two\n");
    EXPECT_EQ(host->log(), "two\n");
    std::filesystem::remove_all(host->path("/var/log/ostrel"));
    oxr_log_to_file(0, "lost\n");
    oxr_log(3, "lost");
    host->write_file(LOG, "");
    oxr_log_to_file(0, "three\n");
    EXPECT_EQ(host->log(), "three\n");
}

TEST_F(LogTest, AWriteIsFinishedUnlessTheDiskIsFull) {
    simhost::Fault part = testing_support::failing("write");
    part.short_by = 4;
    host->fail(part);
    simhost::Fault interrupted = testing_support::failing_with("write", EINTR);
    interrupted.nth = 2;
    host->fail(interrupted);
    oxr_log_to_file(0, "whole line\n");
    EXPECT_EQ(host->log(), "whole line\n");
    for (const char* const operation : {"open", "write", "close", "stat"}) {
        host->fail(testing_support::failing_with(operation, ENOSPC));
        oxr_log_to_file(0, "%s fails\n", operation);
        oxr_log_to_file(0, "after\n");
        EXPECT_TRUE(host->log().ends_with("after\n")) << operation;
    }
}

TEST_F(LogTest, RotatesAboveTwoMebibytes) {
    const struct {
        std::size_t size;
        bool rotated;
    } cases[] = {{0, false}, {LIMIT - 1, false}, {LIMIT, false}, {LIMIT + 1, true}, {10 * LIMIT, true}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.size);
        const std::string old(each.size, 'x');
        host->write_file(LOG, old);
        oxr_log_to_file(0, "next\n");
        EXPECT_EQ(has_older(1), each.rotated);
        EXPECT_TRUE(host->log() == (each.rotated ? "next\n" : old + "next\n"));
        EXPECT_TRUE(!each.rotated || older(1) == old);
        host->remove_file(std::string(LOG) + ".1");
    }
}

TEST_F(LogTest, RotationShiftsEachOlderFileAndLosesTheSixth) {
    for (int i = 1; i <= 6; ++i) {
        host->write_file(LOG + std::string(".") + std::to_string(i), "old " + std::to_string(i));
    }
    host->remove_file(std::string(LOG) + ".3");
    const std::string full(LIMIT + 1, 'x');
    host->write_file(LOG, full);
    oxr_log(2, "next");
    EXPECT_EQ(older(6), "old 5");
    EXPECT_EQ(older(5), "old 4");
    EXPECT_EQ(older(4), "old 4");  // copied, and no younger file to take its place
    EXPECT_EQ(older(3), "old 2");
    EXPECT_EQ(older(2), "old 1");
    EXPECT_TRUE(older(1) == full);
    EXPECT_FALSE(has_older(7));
    EXPECT_EQ(host->log(), "Tue Nov 14 22:13:20 2023: WARNING: next\n");
}

TEST_F(LogTest, AFailedRotationLosesNoFurtherMessage) {
    for (const char* const operation : {"open", "read", "write", "stat", "access"}) {
        for (std::uint64_t nth = 1; nth <= 4; ++nth) {
            host->write_file(std::string(LOG) + ".1", "old");
            host->write_file(LOG, std::string(LIMIT + 1, 'x'));
            simhost::Fault fault = testing_support::failing(operation, nth);
            fault.path_contains = LOG;
            host->fail(fault);
            oxr_log_to_file(0, "during\n");
            host->clear_faults();
            oxr_log_to_file(0, "after\n");
            EXPECT_TRUE(host->log().ends_with("after\n")) << operation << ' ' << nth;
            EXPECT_EQ(host->descriptors_held(), 0U);
        }
    }
}

TEST_F(LogTest, TheLongestNameRotatesToo) {
    const std::string folder = "/vmfs/volumes/" + std::string(91 - 14, 'd');
    const std::string name = folder + "/oxr.log";
    ASSERT_EQ(name.size(), 99U);
    host->write_file(name, std::string(LIMIT + 1, 'x'));
    host->write_file(name + ".1", "old 1");
    set_log_filename(name.c_str());
    oxr_log_to_file(0, "next\n");
    EXPECT_EQ(host->read_file(name), "next\n");
    EXPECT_EQ(host->read_file(name + ".2"), "old 1");
    EXPECT_EQ(host->read_file(name + ".1").size(), LIMIT + 1);

    set_log_filename((name + "-too-long").c_str());
    const oxr::MutexLock lock(log_file_mutex);
    EXPECT_EQ(std::string(g_log_filename), name);
}

TEST_F(LogTest, OtherComponentsLogWithoutAFilter) {
    log_level = 0;
    const struct {
        int level;
        const char* word;
    } cases[] = {{3, "ERROR"}, {2, "WARNING"}, {1, "INFO"},        {0, "INFO"},
                 {4, "INFO"},  {-1, "INFO"},   {INT32_MAX, "INFO"}};
    for (const auto& each : cases) {
        host->write_file(LOG, "");
        oxr_log(each.level, "level %d", each.level);
        EXPECT_EQ(host->log(), std::string("Tue Nov 14 22:13:20 2023: ") + each.word + ": level " +
                                   std::to_string(each.level) + "\n");
    }
}

TEST_F(LogTest, ThreadsNeverInterleaveAlsoWhileRotating) {
    constexpr int messages = 300;
    host->write_file(LOG, std::string(LIMIT - 100000, '.') + "\n");
    const auto log_many = [](char who) {
        for (int i = 0; i < messages; ++i) {
            OXR_INFO("%c%d %s end", who, i, std::string(static_cast<std::size_t>(i * 7 % 900), who).c_str());
        }
    };
    std::thread other(log_many, 'b');
    log_many('a');
    other.join();
    const std::regex line(
        R"((\w{3} \w{3}  \d\d \d\d:\d\d:\d\d \d{4}: INFO: tests: operator\(\):\d+ : )?([ab])(\d+) (a*|b*) end)");
    int next[2] = {0, 0};
    std::string all = older(1) + host->log();
    all.erase(0, all.find('\n') + 1);
    for (std::size_t at = 0; at < all.size();) {
        const std::size_t end = all.find('\n', at);
        const std::string text = all.substr(at, end - at);
        at = end + 1;
        std::smatch match;
        ASSERT_TRUE(std::regex_match(text, match, line)) << text;
        EXPECT_EQ(std::stoi(match[3]), next[match[2] == "b" ? 1 : 0]++);
    }
    EXPECT_TRUE(has_older(1));
    EXPECT_EQ(next[0], messages);
    EXPECT_EQ(next[1], messages);
}

}  // namespace
