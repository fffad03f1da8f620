// What oxrctl tells of a configuration file is what the service does with it.
#include <fstream>

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

class CheckTest : public testing_support::HostTest {
protected:
    ConfigReport judge(const std::string& text) {
        host->write_file(OSTREL_CONFIG_FILE, text);
        return judge_config_file(host->path(OSTREL_CONFIG_FILE));
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
        {canonical("interval=120", "interval=300\ninterval=60"), {}, {}},
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
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const ConfigReport report = judge(c.text);
        ConfigValues values;
        {
            const oxr::MutexLock lock(config_file_mutex);
            ASSERT_EQ(OSTREL_GetConfigValues(&values, report.old_format ? CONFIG_CONVERT : CONFIG_NORMAL), 0);
        }
        Lines corrected, ignored;
        for (const auto& value : report.values) {
            EXPECT_EQ(value.in_force, shared::value_text(*find_config_key(value.key), values)) << value.key;
            corrected.insert(corrected.end(), value.corrected ? 1 : 0, value.key);
        }
        for (const auto& line : report.ignored) {
            ignored.push_back(line.why);
        }
        EXPECT_EQ(corrected, c.corrected);
        EXPECT_EQ(ignored, c.ignored);
        EXPECT_EQ(!report.notes.empty(), c.notes);
        const std::string written = host->read_file(OSTREL_CONFIG_FILE);
        EXPECT_EQ(report.rewritten, report.rewrite_reasons.empty() ? "" : written);
        EXPECT_EQ(report.rewrite_reasons.empty(), written == c.text);
    }
}

// Read without a comment line it works, until the service starts again.
TEST_F(CheckTest, WarnsOfAFileThatTheNextStartTakesForAnOldOne) {
    const ConfigReport report = judge("interval=300\nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n");
    EXPECT_EQ(report.values[0].in_force, "300");
    EXPECT_EQ(report.notes.size(), 1U);
    EXPECT_FALSE(report.is_clean());
    EXPECT_TRUE(judge("").notes.at(0).starts_with("The file is empty."));
    EXPECT_TRUE(judge("").rewrite_reasons.empty());
}
