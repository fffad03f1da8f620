// A scenario with --set in force is what the text would be with these values.
#include <gtest/gtest.h>

#include "programs/ostrel-simhost/scenario.h"

using namespace ostrel_simhost;

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
