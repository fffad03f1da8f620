// What oxrctl tells of a configuration file is what the service does with it.
#include <algorithm>

#include "OstrelProvider/config.h"
#include "configuration/config_keys.h"
#include "configuration/config_text.h"
#include "oxrctl/config_report.h"
#include "shared/config_file.h"
#include "support/host_test.h"

using namespace oxrctl;
using testing_support::Lines;

namespace {

// The canonical file with a change.
std::string canonical(const std::string& from = "", const std::string& to = "") {
    char text[CONFIG_TEXT_SIZE];
    std::string file(text, compose_config(text, ConfigForm::rewritten, {}));
    return file.replace(file.find(from), from.size(), to);
}

// The text as it may come from elsewhere: in the old format, without comments, from another system.
std::vector<std::string> forms_of(const std::string& text) {
    std::string old = text, plain, foreign;
    std::replace(old.begin(), old.end(), '=', ':');
    for (const std::string_view line : shared::config_lines(text)) {
        plain += line.starts_with('#') ? std::string_view() : line;
        foreign += std::string(line.substr(0, line.find('\n'))) + "\r\n";
    }
    std::string plain_old = plain;
    std::replace(plain_old.begin(), plain_old.end(), '=', ':');
    return {text, old, plain, plain_old, plain + plain_old, foreign, "\xEF\xBB\xBF" + text, "\xEF\xBB\xBF" + plain};
}

class CheckTest : public testing_support::HostTest {
protected:
    ConfigReport judge(const std::string& text) {
        host->write_file(OSTREL_CONFIG_FILE, text);
        return judge_config_file(host->path(OSTREL_CONFIG_FILE));
    }

    // Lets the library read the file, as a running service or as one that starts.
    void expect_reading(const std::string& text, const ConfigReport& report, bool starts) {
        host->write_file(OSTREL_CONFIG_FILE, text);
        ConfigValues values;
        {
            const oxr::MutexLock lock(config_file_mutex);
            if (starts) {
                OSTREL_CreateConfigFile();
            }
            const auto& reading = starts ? report.start : report.running;
            EXPECT_EQ(OSTREL_GetConfigValues(&values, CONFIG_NORMAL) != 0, reading.refuses);
            EXPECT_EQ(host->read_file(OSTREL_CONFIG_FILE), reading.rewritten.empty() ? text : reading.rewritten);
        }
        for (const auto& value : report.values) {
            if (starts || !report.running.refuses) {
                EXPECT_EQ(starts ? value.at_start : value.in_force,
                          shared::value_text(*find_config_key(value.key), values))
                    << value.key << (starts ? " at a start" : " while running");
            }
        }
    }
};

}  // namespace

TEST_F(CheckTest, TellsWhatTheServiceDoes) {
    const std::string path = "ostrel_logs_path=/var/log/ostrel";
    const struct {
        std::string text;
        Lines corrected;  // keys
        Lines ignored;    // why
        bool notes = false;
    } cases[] = {
        {canonical(), {}, {}},
        {"#\n", {}, {}},
        {canonical("interval=120", "interval=59"), {"interval"}, {}},
        {canonical("interval=120", "interval=soon"), {"interval"}, {}},
        {canonical("interval=120", "interval= 300 seconds"), {"interval"}, {}},
        {canonical("interval=120", "Interval=300"), {}, {}},
        {canonical("interval=120", " interval=300"), {}, {"the key must begin the line"}},
        {canonical("interval=120", "interval =300"), {}, {"no blanks between the key and \"=\""}},
        {canonical("interval=120", "intreval=300"), {}, {"unknown key; did you mean interval?"}},
        {canonical("interval=120", "colour=blue"), {}, {"unknown key"}},
        {canonical("interval=120", "interval 300"), {}, {"no \"=\" in it"}},
        {canonical("interval=120", "interval=300\ninterval=60"), {}, {}, true},
        {canonical("min_vol_sessions=2", "min_volsessions=9"), {"min_vol_sessions"}, {}},
        {canonical("max_vol_sessions=8", "max_vol_sessions=-1"), {"max_vol_sessions"}, {}},
        {canonical("\nvol_sessions=0", "\nvol_sessions=10"), {"vol_sessions"}, {}},
        {canonical("log_level=1", "log_level=0"), {"log_level"}, {}},
        {canonical(path, "ostrel_logs_path=/nowhere"), {"ostrel_logs_path"}, {}},
        {canonical(path, "ostrel_logs_path=/var/log"), {}, {}},
        {canonical(path, "Ostrel_Logs_Path=/x"), {}, {"this key must be in lower case and have a path"}},
        {canonical(path, "ostrel_logs_path=" + std::string(100, '/')), {"ostrel_logs_path"}, {}},
        {canonical("use_ostrel_timeouts=1\n", "\n"), {}, {}},
        {canonical().substr(0, 1500), {}, {}, true},
        {canonical("interval=120", "interval=300" + std::string(300, ' ')), {}, {}, true},
        {"interval:300\nvol_sessions:4\nvmknic_count:2\n", {"interval", "vmknic_count"}, {}, true},
        {"", {}, {}, true},
        {"nothing\n", {}, {"no \"=\" in it"}},
        {"interval=300\nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n", {}, {}, true},
        {"interval=300\n", {}, {}, true},
        {canonical("interval=120",
                   "interval=\xC2\xA0"
                   "300"),
         {"interval"},
         {},
         true},
        {canonical(path, path + " "), {"ostrel_logs_path"}, {}},
    };
    int files = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const ConfigReport report = judge(c.text);
        Lines corrected, ignored;
        for (const auto& value : report.values) {
            corrected.insert(corrected.end(), value.corrected ? 1 : 0, value.key);
        }
        for (const auto& line : report.ignored) {
            ignored.push_back(line.why);
        }
        EXPECT_EQ(corrected, c.corrected);
        EXPECT_EQ(ignored, c.ignored);
        EXPECT_EQ(!report.notes.empty(), c.notes) << testing::PrintToString(report.notes);
        EXPECT_EQ(report.rewrite_reasons.empty(), report.rewritten.empty());
        for (const std::string& text : forms_of(c.text)) {
            SCOPED_TRACE(text);
            const ConfigReport form = judge(text);
            expect_reading(text, form, false);
            expect_reading(text, form, true);
            ++files;
        }
    }
    EXPECT_GT(files, 200);
}
