// What the judge makes of a file's text: no host is needed.
#include "configuration/config_judge.h"

#include <gtest/gtest.h>

#include <cstring>

#include "configuration/config_text.h"
#include "shared/config_file.h"

namespace {

// Writes down what is noticed: "!KEY=NUMBER" a value that isn't accepted, "?" when nobody is warned of it.
struct Notes final : ConfigObserver {
    void value_read(const ConfigKey& key, std::uint32_t found, std::uint32_t, bool accepted) override {
        const std::string name = key.warned_as != nullptr ? key.warned_as : "?" + std::string(key.name);
        text += accepted ? "" : "!" + name + "=" + std::to_string(static_cast<std::int32_t>(found)) + " ";
    }
    void minimum_above_maximum(const ConfigValues& values, std::uint32_t) override {
        text += std::to_string(values.min_vol_sessions) + ">" + std::to_string(values.max_vol_sessions) + " ";
    }
    void vol_sessions_outside(const ConfigValues&) override { text += "outside "; }
    void key_missing(std::string_view name) override { text += "no " + std::string(name) + " "; }
    std::string text;
};

// The notes, the values that aren't the defaults, and "rewrite" when the file is to be written anew.
std::string judged(const std::string& text, bool converting) {
    Notes notes;
    ConfigJudge judge(converting, notes);
    for (const std::string_view line : shared::config_lines(text)) {
        judge.take_line(line);
    }
    if (judge.fitness() != ConfigFitness::fit) {
        return judge.fitness() == ConfigFitness::has_comments ? "has comments" : "not converted";
    }
    judge.finish();
    for (const ConfigKey& key : config_keys) {
        const std::string value = shared::value_text(key, judge.values());
        notes.text += value == shared::value_text(key, {}) ? "" : std::string(key.name) + "=" + value + " ";
    }
    return notes.text + (judge.wants_rewrite() ? "rewrite" : "");
}

// `rest`: lines behind each text.
void expect_judged(const std::vector<std::pair<std::string, const char*>>& cases, const std::string& rest,
                   bool converting = false) {
    for (const auto& [text, told] : cases) {
        EXPECT_EQ(judged(text + rest, converting), told) << text.substr(0, 80);
    }
}

const std::string WHOLE = "\nuse_ostrel_timeouts=1\nostrel_logs_path=/x\n";

}  // namespace

TEST(ConfigJudge, HoldsValuesToTheirRangeAndAgainstEachOther) {
    expect_judged(
        {{"interval=60\nmax_vol_sessions=2\nmin_pe_sessions=4\nmax_pe_sessions=4\nlog_level=1",
          "interval=60 max_vol_sessions=2 max_pe_sessions=4 "},
         {"interval=604800\nlog_level=2\nmin_vol_sessions=32\nmax_vol_sessions=32\nmin_pe_sessions=32",
          "interval=604800 min_vol_sessions=32 max_vol_sessions=32 min_pe_sessions=32 log_level=2 "},
         {"interval=604801\nmin_vol_sessions=33\nmax_vol_sessions=33\nmin_pe_sessions=33\nmax_pe_sessions=33\nlog_"
          "level=3",
          "!interval=604801 !min_vol_sessions=33 !max_volsessions=33 !min_pe_sessions=33 !max_pe_sessions=33 "
          "!?log_level=3 rewrite"},
         {"interval=59", "!interval=59 rewrite"},
         {"min_vol_sessions=1", "!min_vol_sessions=1 "},
         {"max_vol_sessions=1", "!max_volsessions=1 rewrite"},
         {"min_pe_sessions=3", "!min_pe_sessions=3 rewrite"},
         {"max_pe_sessions=3", "!max_pe_sessions=3 rewrite"},
         {"log_level=0", "!?log_level=0 rewrite"},
         {"use_ostrel_timeouts=2", "!use_ostrel_timeouts=2 rewrite"},
         {"worker_stop=4294967295\nvmknic_count=-7", "vmknic_count=4294967289 worker_stop=4294967295 "},
         {"min_vol_sessions=6\nmax_vol_sessions=4", "6>4 max_vol_sessions=4 rewrite"},
         {"vol_sessions=2", "vol_sessions=2 "},
         {"vol_sessions=8", "vol_sessions=8 "},
         {"vol_sessions=1", "outside vol_sessions=2 rewrite"},
         {"vol_sessions=-3", "outside vol_sessions=2 rewrite"},
         {"min_vol_sessions=5\nvol_sessions=4", "outside min_vol_sessions=5 vol_sessions=5 rewrite"},
         // The limits are settled first.
         {"vol_sessions=3\nmin_vol_sessions=6\nmax_vol_sessions=4", "6>4 max_vol_sessions=4 vol_sessions=3 rewrite"}},
        WHOLE);
}

TEST(ConfigJudge, TakesLinesOfAKeyAndANumber) {
    expect_judged({{"interval=060s", "interval=60 "},
                   {"interval=60=70", "interval=60 "},
                   {"interval=\v60 70", "interval=60 "},
                   {"interval=", "!interval=0 rewrite"},
                   {"interval=4294967356", "!interval=2147483647 rewrite"},
                   {"INTERVAL=300\r", "interval=300 "},
                   {"interval=1\ninterval=300", "!interval=1 interval=300 rewrite"},
                   {"MIN_VOLSESSIONS=3\nMax_VolSessions=9\nvolsessions=4",
                    "min_vol_sessions=3 max_vol_sessions=9 vol_sessions=4 "},
                   {std::string(300, '#') + "\ninterval=300" + std::string(1000, ' '), "interval=300 "},
                   {std::string("interval\0=300", 13), ""}},
                  WHOLE);
    for (const char* const line :
         {" interval=300", "interval =300", " # interval=300", "interval:300", "interval", "=300",
          "\xef\xbb\xbfinterval=300", "interva=300", "intervals=300", "minvol_sessions=3", "", "\r", "[section]"}) {
        expect_judged({{line, ""}}, WHOLE);
    }
}

TEST(ConfigJudge, ConvertsTheOldFormatButNotTheCurrentOne) {
    const char* const nothing = "no use_ostrel_timeouts no ostrel_logs_path rewrite";
    expect_judged(
        {{"interval:300\nvolsessions:4:5\nvmknic_count:6", "!interval=300 !?vmknic_count=6 vol_sessions=4 rewrite"},
         {"vol_sessions=4", "rewrite"},
         {"vol_sessions:4\n \t# a comment", "has comments"}},
        "\nuse_ostrel_timeouts:1\nostrel_logs_path:1", true);
    expect_judged({{"interval:300", "not converted"},
                   {std::string("interval:300\nx\0=1", 16), "not converted"},
                   {"interval:300\nx=1", nothing},
                   {"interval:300\n#", nothing},
                   {"ostrel_logs_path:/x", nothing},
                   {"#", nothing}},
                  "");
}

TEST(ConfigText, TakesTheWidestValues) {
    ConfigValues values;
    std::memset(static_cast<void*>(&values), 0xff, sizeof values);
    std::memset(values.ostrel_logs_path, 'p', sizeof values.ostrel_logs_path);  // no terminator
    char text[CONFIG_TEXT_SIZE];
    const std::string file(text, compose_config(text, ConfigForm::rewritten, values));
    EXPECT_NE(file.find("interval=4294967295\n"), std::string::npos);
    EXPECT_TRUE(file.ends_with("ostrel_logs_path=" + std::string(100, 'p') + "\n\n"));
    char line[CONFIG_LINE_SIZE];
    compose_config_line(line, &values);
    EXPECT_TRUE(std::string_view(line).ends_with("timeouts = -1, logs_path = " + std::string(100, 'p') + "."));
}
