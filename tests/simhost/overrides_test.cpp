// A scenario with --set in force is what the text would be with these values, or is refused in one line.
#include <gtest/gtest.h>

#include "programs/ostrel-simhost/scenario.h"

using namespace program;

namespace {

constexpr std::string_view SITE = R"(
[[adapter]]
name = "vmhba64"
nics = ["10.0.1.1"]
[[group]]
name = "g"
discovery_ip = "10.0.9.1"
arrays = [{ name = "a", data_ips = ["10.0.1.101"] }]
[[group_scoped_target]]
name = "pe"
group = "g"
[[volumes]]
name = "db-##"
count = 3
group = "g"
[[volumes]]
name = "log"
group = "g"
)";

std::string site_with(std::string_view head) {
    return std::string(head) + std::string(SITE);
}

bool has_line(const std::string& text, const std::string& line) {
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

}  // namespace

TEST(Overrides, ReachTheConfigurationFileInItsOwnForm) {
    const struct {
        std::string_view head;
        std::vector<std::string> overrides;
        std::string line;
    } cases[] = {
        {"", {"interval=300"}, "interval=300"},
        {"", {"interval=300", "interval=60"}, "interval=60"},
        {"[config]\ninterval = 90\n", {"interval=300"}, "interval=300"},
        {"[config]\ninterval = 90\n", {"vol_sessions=4"}, "interval=90"},
        {"[config]\ninterval = 90\n", {"vol_sessions=4"}, "vol_sessions=4"},
        {"", {"ostrel_logs_path=/var/log/ostrel/deep"}, "ostrel_logs_path=/var/log/ostrel/deep"},
        {"config_file = \"# ours\\ninterval=90\\n\"\n", {"interval=300"}, "interval=300"},
        {"config_file = \"interval:90\\nVolSessions:2\\n\"\n", {"vol_sessions=4"}, "vol_sessions:4"},
        {"config_file = \"interval:90\\n\"\n", {"max_vol_sessions=4"}, "max_vol_sessions:4"},
    };
    for (const auto& each : cases) {
        const auto read = read_scenario(site_with(each.head), each.overrides);
        ASSERT_TRUE(read.problems.empty()) << problems_text(read.problems, "f");
        EXPECT_TRUE(has_line(read.scenario.config_text.value_or(""), each.line))
            << each.line << " in\n"
            << read.scenario.config_text.value_or("no file");
    }
}

TEST(Overrides, ReachVolumesFirstConnectionsAndTheHost) {
    const auto read = read_scenario(SITE, {"db-##=12", "db-##.sessions=5", "log.sessions=1", "pe.sessions=7",
                                           "login_seconds=2.5", "claim_seconds=-1"});
    ASSERT_TRUE(read.problems.empty()) << problems_text(read.problems, "f");
    const Scenario& scenario = read.scenario;
    ASSERT_EQ(scenario.volumes.size(), 13U);
    EXPECT_EQ(scenario.volumes[11].spec.eui, "db-12");
    EXPECT_EQ(scenario.volumes[11].sessions, 5);
    EXPECT_EQ(scenario.volumes[12].sessions, 1);
    EXPECT_EQ(scenario.group_scoped_targets[0].sessions, 7);
    EXPECT_EQ(scenario.login_seconds, 2.5);
    EXPECT_EQ(scenario.claim_seconds, -1);
}

TEST(Overrides, AreRefusedInOneLineThatNamesTheOption) {
    const struct {
        std::string_view head;
        std::string option;
        std::string expected;  // a part of the line
    } cases[] = {
        {"", "interval", "option: expected KEY=VALUE, found no ="},
        {"", "=5", "option: expected KEY=VALUE, found no key"},
        {"", "intervall=5", "found \"intervall\""},
        {"", "intervall=5", "(db-##), NAME.sessions (NAME: db-##, log, pe)"},
        {"", "db-01=5", "found \"db-01\""},
        {"", "nothing.sessions=5", "found \"nothing.sessions\""},
        {"", "log=2", "with # for the number"},
        {"", "interval=soon", "config.interval: expected a whole number from"},
        {"", "interval=", "found \"\""},
        {"", "interval=99999999999", "found 99999999999"},
        {"config_file = \"interval:90\\n\"\n", "interval=soon", "config_file.interval: expected a whole number"},
        {"", "ostrel_logs_path=/tmp", "within /var/log/ostrel"},
        {"", "db-##=0", "volumes.count: expected a whole number from 1 to 256, found 0"},
        {"", "db-##=256", "at most 256 volumes in all"},
        {"", "db-##.sessions=33", "volumes.sessions: expected a whole number from 0 to 32"},
        {"", "login_seconds=-1", "host.login_seconds: expected a time"},
    };
    for (const auto& each : cases) {
        const auto read = read_scenario(site_with(each.head), {"claim_seconds=1", each.option});
        EXPECT_EQ(read.problems.size(), 1U) << each.option;
        const std::string text = problems_text(read.problems, "f");
        EXPECT_TRUE(text.starts_with("ostrel-simhost: --set " + each.option + ": ")) << text;
        EXPECT_NE(text.find(each.expected), std::string::npos) << text;
    }
}
