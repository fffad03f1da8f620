// A scenario with --set in force is what the text would be with these values, or is refused in one line.
#include <gtest/gtest.h>

#include "programs/ostrel-simhost/scenario.h"

using namespace program;

namespace {

ScenarioOrProblems read_site(const std::string& head, const std::vector<std::string>& overrides) {
    return read_scenario(head + R"(
adapter = [{ name = "vmhba64", nics = ["10.0.1.1"] }]
group = [{ name = "g", discovery_ip = "10.0.9.1", arrays = [{ name = "a", data_ips = ["10.0.1.101"] }] }]
group_scoped_target = [{ name = "pe", group = "g" }]
volumes = [{ name = "db-##", count = 3, group = "g" }, { name = "log", group = "g" }]
)",
                         overrides);
}

}  // namespace

TEST(Overrides, ReachTheConfigurationFileInItsOwnForm) {
    const struct {
        std::string head;
        std::vector<std::string> overrides;
        std::string line;
    } cases[] = {
        {"", {"interval=300", "interval=60"}, "\ninterval=60\n"},
        {"config = { interval = 90 }", {"interval=300"}, "\ninterval=300\n"},
        {"config = { interval = 90 }", {"vol_sessions=4"}, "\ninterval=90\n"},
        {"", {"ostrel_logs_path=/var/log/ostrel/deep"}, "\nostrel_logs_path=/var/log/ostrel/deep\n"},
        {"config_file = \"# ours\\ninterval=90\\n\"", {"interval=300"}, "# ours\ninterval=300\n"},
        {"config_file = \"interval:90\\nVolSessions:2\\n\"", {"vol_sessions=4"}, "interval:90\nvol_sessions:4\n"},
        {"config_file = \"interval:90\\n\"", {"max_vol_sessions=4"}, "interval:90\nmax_vol_sessions:4\n"},
    };
    for (const auto& each : cases) {
        const auto read = read_site(each.head, each.overrides);
        const std::string text = read.scenario.config_text.value_or("no file");
        EXPECT_NE(text.find(each.line), std::string::npos) << text << problems_text(read.problems, "f");
    }
}

TEST(Overrides, ReachVolumesFirstConnectionsAndTheHost) {
    const auto [scenario, problems] = read_site("", {"db-##=12", "db-##.sessions=5", "log.sessions=1", "pe.sessions=7",
                                                     "login_seconds=2.5", "claim_seconds=-1"});
    ASSERT_EQ(scenario.volumes.size(), 13U) << problems_text(problems, "f");
    EXPECT_EQ(scenario.volumes[11].spec.eui, "db-12");
    EXPECT_EQ(scenario.volumes[11].sessions, 5);
    EXPECT_EQ(scenario.volumes[12].sessions, 1);
    EXPECT_EQ(scenario.group_scoped_targets[0].sessions, 7);
    EXPECT_EQ(scenario.login_seconds, 2.5);
    EXPECT_EQ(scenario.claim_seconds, -1);
}

TEST(Overrides, AreRefusedInOneLineThatNamesTheOption) {
    const std::pair<std::string, std::string> cases[] = {
        {"interval", "option: expected KEY=VALUE, KEY being a key that ostrel-simhost --keys SCENARIO lists, "},
        {"=5", "found no key"},
        {"intervall=5", "lists, such as interval, found \"intervall\""},
        {"add_volumes={ name = \"db-##\", count = 1, group = \"g\" }", "found db-01, taken in line"},
        {"at=5", "found \"at\""},
        {"lag.sessions=5", "such as log.sessions, found \"lag.sessions\""},
        {"log=2", "with # for the number"},
        {"interval=soon", "config.interval: expected a whole number from"},
        {"interval=99999999999", "found 99999999999"},
        {"ostrel_logs_path=/tmp", "within /var/log/ostrel"},
        {"db-##=0", "volumes.count: expected a whole number from 1 to 256, found 0"},
        {"db-##=256", "at most 256 volumes in all"},
        {"db-##.sessions=33", "volumes.sessions: expected a whole number from 0 to 32"},
        {"login_seconds=-1", "host.login_seconds: expected a time"},
    };
    for (const auto& [option, expected] : cases) {
        const std::string text = problems_text(read_site("", {"claim_seconds=1", option}).problems, "f");
        EXPECT_TRUE(text.starts_with("ostrel-simhost: --set " + option + ": ")) << text;
        EXPECT_NE(text.find(expected), std::string::npos) << text;
        EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
    }
}
