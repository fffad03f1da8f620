// What oxrctl tells of a configuration file is what the service does with it.
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>

#include "OstrelProvider/config.h"
#include "oxrctl/commands.h"
#include "oxrctl/config_report.h"
#include "support/host_test.h"

using namespace oxrctl;

namespace {

// The canonical file with a change.
std::string canonical(const std::string& from = "", const std::string& to = "") {
    std::ifstream kept(OXR_SOURCE_DIR "/tests/OstrelProvider/canonical_rewritten.txt");
    std::string text(std::istreambuf_iterator<char>(kept), {});
    for (const char* const value : {"120", "2", "8", "0", "4", "32", "1", "0", "0", "1", "/var/log/ostrel"}) {
        text.replace(text.find('@'), 1, value);
    }
    return from.empty() ? text : text.replace(text.find(from), from.size(), to);
}

class CheckTest : public testing_support::HostTest {
protected:
    ConfigReport judge(const std::string& text) {
        host->write_file(OSTREL_CONFIG_FILE, text);
        return judge_config_file(host->path(OSTREL_CONFIG_FILE));
    }
};

}  // namespace

TEST_F(CheckTest, TellsWhatTheServiceDoes) {
    const struct {
        std::string text;
        std::vector<std::string> corrected;  // keys
        std::vector<std::string> ignored;    // why
        bool notes = false;
    } cases[] = {
        {canonical(), {}, {}},
        {"#\n", {}, {}},
        {canonical("interval=120", "interval=59"), {"interval"}, {}},
        {canonical("interval=120", "interval=604801"), {"interval"}, {}},
        {canonical("interval=120", "interval=soon"), {"interval"}, {}},
        {canonical("interval=120", "interval= 300 seconds"), {"interval"}, {}},
        {canonical("interval=120", "Interval=300"), {}, {}},
        {canonical("interval=120", " interval=300"), {}, {"the key must begin the line"}},
        {canonical("interval=120", "interval =300"), {}, {"no blanks between the key and \"=\""}},
        {canonical("interval=120", "intreval=300"), {}, {"unknown key; did you mean interval?"}},
        {canonical("interval=120", "colour=blue"), {}, {"unknown key"}},
        {canonical("interval=120", "interval 300"), {}, {"no \"=\" in it"}},
        {canonical("interval=120", "interval=300\ninterval=60"), {}, {}},
        {canonical("min_vol_sessions=2", "min_vol_sessions=1"), {"min_vol_sessions"}, {}},
        {canonical("min_vol_sessions=2", "min_volsessions=9"), {"min_vol_sessions"}, {}},
        {canonical("max_vol_sessions=8", "max_vol_sessions=-1"), {"max_vol_sessions"}, {}},
        {canonical("\nvol_sessions=0", "\nvol_sessions=10"), {"vol_sessions"}, {}},
        {canonical("log_level=1", "log_level=0"), {"log_level"}, {}},
        {canonical("ostrel_logs_path=/var/log/ostrel", "ostrel_logs_path=/nowhere"), {"ostrel_logs_path"}, {}},
        {canonical("ostrel_logs_path=/var/log/ostrel", "ostrel_logs_path=/var/log"), {}, {}},
        {canonical("ostrel_logs_path=/var/log/ostrel", "ostrel_logs_path=" + std::string(100, '/')),
         {"ostrel_logs_path"},
         {}},
        {canonical("use_ostrel_timeouts=1\n", "\n"), {}, {}},
        {canonical().substr(0, 1500), {}, {}, true},
        {canonical("interval=120", "interval=300" + std::string(300, ' ')), {}, {}, true},
        {"interval:300\nvol_sessions:4\nvmknic_count:2\n", {"interval", "vmknic_count"}, {}, true},
    };
    for (const auto& c : cases) {
        const ConfigReport report = judge(c.text);
        std::vector<std::string> corrected;
        for (const auto& value : report.values) {
            if (value.corrected) {
                corrected.push_back(value.key);
            }
        }
        std::vector<std::string> ignored;
        for (const auto& line : report.ignored) {
            ignored.push_back(line.why);
        }
        EXPECT_EQ(corrected, c.corrected) << c.text;
        EXPECT_EQ(ignored, c.ignored) << c.text;
        EXPECT_EQ(!report.notes.empty(), c.notes) << c.text;

        ConfigValues values;
        {
            const oxr::MutexLock lock(config_file_mutex);
            ASSERT_EQ(OSTREL_GetConfigValues(&values, report.old_format ? CONFIG_CONVERT : CONFIG_NORMAL), 0);
        }
        EXPECT_EQ(report.values[0].in_force, std::to_string(values.interval)) << c.text;
        EXPECT_EQ(report.values[1].in_force, std::to_string(values.min_vol_sessions)) << c.text;
        EXPECT_EQ(report.values[3].in_force, std::to_string(values.vol_sessions)) << c.text;
        EXPECT_EQ(report.values[7].in_force, std::to_string(values.vmknic_count)) << c.text;
        EXPECT_EQ(report.values[10].in_force, values.ostrel_logs_path) << c.text;
        const std::string written = host->read_file(OSTREL_CONFIG_FILE);
        EXPECT_EQ(report.rewritten, report.rewrite_reasons.empty() ? "" : written) << c.text;
        EXPECT_EQ(report.rewrite_reasons.empty(), written == c.text) << c.text;
    }
}

// Read without a comment line it works, until the service starts again.
TEST_F(CheckTest, WarnsOfAFileThatTheNextStartTakesForAnOldOne) {
    std::string text;
    std::istringstream lines(canonical("interval=120", "interval=300"));
    for (std::string line; std::getline(lines, line);) {
        text += line.starts_with('#') ? "" : line + "\n";
    }
    const ConfigReport report = judge(text);
    EXPECT_EQ(report.values[0].in_force, "300");
    EXPECT_EQ(report.notes.size(), 1U);
    EXPECT_FALSE(report.is_clean());
    EXPECT_TRUE(judge("").notes.at(0).starts_with("The file is empty."));
}

TEST_F(CheckTest, ExitCodesAreThoseOfTheHelp) {
    CheckOptions options;
    options.file = host->path(OSTREL_CONFIG_FILE);
    host->write_file(OSTREL_CONFIG_FILE, canonical());
    EXPECT_EQ(check(options).exit_code, EXIT_FINE);
    host->write_file(OSTREL_CONFIG_FILE, canonical("interval=120", "intervall=120"));
    EXPECT_EQ(check(options).exit_code, EXIT_FOUND);
    options.json = true;
    EXPECT_EQ(Json::parse(check(options).text)["ignored"][0]["line"], 4);

    const auto refused = [&](const std::string& file) {
        options.file = file;
        try {
            (void)check(options);
        } catch (const Refusal& refusal) {
            return refusal.exit_code == EXIT_UNUSABLE &&
                   std::string_view(refusal.what()).find('\n') == std::string_view::npos;
        }
        return false;
    };
    EXPECT_TRUE(refused(host->path("/etc/ostrel/none")));
    EXPECT_TRUE(refused(host->path("/etc/ostrel")));
    host->write_file(OSTREL_CONFIG_FILE, std::string("inter\0val=120\n", 14));
    EXPECT_TRUE(refused(host->path(OSTREL_CONFIG_FILE)));
    host->write_file(OSTREL_CONFIG_FILE, std::string(2 << 20, 'x'));
    EXPECT_TRUE(refused(host->path(OSTREL_CONFIG_FILE)));
}
