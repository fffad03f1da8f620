// What `oxrctl plan` tells of a host, and how it refuses what it can't use.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "oxrctl/commands.h"
#include "oxrctl/plan_pair.h"

using namespace oxrctl;

namespace {

namespace fs = std::filesystem;

// Two NICs and two arrays: four sessions a volume; a lost NIC halves that.
constexpr std::string_view SITE = R"(title = "small"
run_for = "20m"
[[adapter]]
name = "vmhba64"
nics = ["10.0.1.1", "10.0.1.2"]
[[group]]
name = "g"
discovery_ip = "10.0.9.1"
arrays = [{ name = "a", data_ips = ["10.0.1.101"] }, { name = "b", data_ips = ["10.0.1.102"] }]
[[volumes]]
name = "db-##"
count = 3
group = "g"
[[event]]
at = "9m"
nic_down = "10.0.1.2"
)";

class PlanTest : public testing::Test {
protected:
    PlanTest() : folder_(fs::path(testing::TempDir()) / ("oxrctl-plan-" + std::to_string(getpid()))) {
        fs::create_directories(folder_ / "tmp");
        setenv("TMPDIR", (folder_ / "tmp").c_str(), 1);
        setenv("PATH", (std::string(OXR_PROGRAMS_DIR "/ostrel-simhost:") + getenv("PATH")).c_str(), 1);
    }
    ~PlanTest() override {
        EXPECT_TRUE(fs::is_empty(folder_ / "tmp")) << "the simulated root is left behind";
        fs::remove_all(folder_);
        unsetenv("TMPDIR");
    }

    std::string file(const std::string& name, std::string_view text) const {
        std::ofstream(folder_ / name, std::ios::binary) << text;
        return (folder_ / name).string();
    }

    const fs::path folder_;
};

Json json_of(PlanOptions options) {
    options.json = true;
    return Json::parse(plan(options).text);
}

void expect_in(const std::string& text, const std::vector<std::string>& wanted) {
    for (const std::string& each : wanted) {
        EXPECT_NE(text.find(each), std::string::npos) << each << " in\n" << text;
    }
}

std::size_t longest_line(const std::string& text) {
    std::size_t longest = 0;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        longest = std::max(longest, end - begin);
        begin = end + 1;
    }
    return longest;
}

}  // namespace

TEST_F(PlanTest, TellsSessionsPassesAndRoom) {
    const PlanOptions options{{file("small.toml", SITE)}, {}, "", false};
    const Answer answer = plan(options);
    EXPECT_EQ(answer.exit_code, EXIT_FINE);
    expect_in(answer.text, {"\nSETTLED", "db-01..db-03 (3)", "NIC 10.0.1.2 lost", "1=10.0.1.1 2=10.0.1.2", "2040"});
    EXPECT_LE(longest_line(answer.text), 100U);

    const Json one = json_of(options)["plans"][0];
    EXPECT_EQ(one["targets"].size(), 3U);
    EXPECT_EQ(one["targets"][0]["sessions"], one["targets"][0]["required"]);
    EXPECT_EQ(one["sessions"]["at_worst"], 12);
    EXPECT_EQ(one["sessions"]["room_at_worst"], 2028);
    ASSERT_EQ(one["phases"].size(), 2U);
    EXPECT_EQ(one["phases"][0]["end"], "settled");
    EXPECT_EQ(one["phases"][0]["passes"], 1);
    EXPECT_EQ(one["phases"][1]["time"], 540.0);

    // The paths of a pass's sessions are claimed after it.
    const Json paths = json_of({options.scenarios, {}, "60s", false})["plans"][0]["paths"];
    EXPECT_EQ(paths["at_end"], 12);
    EXPECT_EQ(paths["at_worst"], 12);
}

TEST_F(PlanTest, ComparesAScenarioWithWhatItMightBe) {
    PlanOptions options{{file("small.toml", SITE)}, {"max_vol_sessions=2", "db-##=4"}, "8m", false};
    const Answer answer = plan(options);
    EXPECT_EQ(answer.exit_code, EXIT_FINE) << "what is beyond the time looked ahead tells nothing against it";
    expect_in(answer.text, {"note, A: the scenario goes on, its next event is at 00:09:00"});
    expect_in(answer.text, {"small.toml with max_vol_sessions=2, db-##=4\n", "4 -> 2", "none -> 2", "12 -> 8"});
    EXPECT_LE(longest_line(answer.text), 100U);
    const Json differences = json_of(options)["differences"];
    ASSERT_EQ(differences["targets"].size(), 2U);
    EXPECT_EQ(differences["targets"][0]["names"].size(), 3U);
    EXPECT_EQ(differences["targets"][0]["states"][1]["required"], 2);
    EXPECT_TRUE(differences["targets"][1]["states"][0].is_null());

    // The same difference as two files.
    const std::string other = std::string("config_file = \"# ours\\nmax_vol_sessions=2\\n\"\n") + std::string(SITE);
    options = {{options.scenarios[0], file("other.toml", other)}, {}, "8m", false};
    expect_in(plan(options).text, {"/other.toml: small", "4 -> 2"});
}

TEST_F(PlanTest, SaysWhatIsAmiss) {
    const struct {
        std::vector<std::string> what_if;
        std::string run_for;
        std::string expected;
    } cases[] = {
        {{"worker_stop=1"}, "", "NOT SETTLED"},
        {{"interval=3600"}, "", "no pass"},  // within the time looked ahead after the event
        {{"login_seconds=1800"}, "", "NOT SETTLED"},
    };
    for (const auto& each : cases) {
        const Answer answer = plan({{file("small.toml", SITE)}, each.what_if, each.run_for, false});
        EXPECT_EQ(answer.exit_code, EXIT_FOUND) << each.what_if[0];
        expect_in(answer.text, {each.expected});
    }
    const Answer full = plan({{"full"}, {}, "", false});
    EXPECT_EQ(full.exit_code, EXIT_FOUND);
    expect_in(full.text, {"cut short by 4 sessions each: vol-255..vol-256 (2) (limit of 2040 sessions)"});
}

TEST_F(PlanTest, RefusesWhatItCantUse) {
    const std::string small = file("small.toml", SITE);
    const std::string huge(5U << 20, '#');
    const struct {
        PlanOptions options;
        std::string expected;
    } cases[] = {
        {{{"nowhere.toml"}, {}, "", false}, "nowhere.toml: expected a scenario file or the name"},
        {{{"--help"}, {}, "", false}, "--help: expected a scenario file"},
        {{{file("binary.toml", std::string_view("\x7f\0\xff", 3))}, {}, "", false}, "binary.toml:1: syntax"},
        {{{file("huge.toml", huge)}, {}, "", false}, "larger than 4 MiB"},
        {{{file("wrong.toml", "run_for = 0\n")}, {}, "", false}, "wrong.toml:1: run_for: expected a time"},
        {{{small}, {"intervall=9"}, "", false}, "--what-if intervall=9: key: expected a configuration key"},
        {{{small}, {"interval"}, "", false}, "--what-if interval: option: expected KEY=VALUE"},
        {{{small}, {}, "soon", false}, "--for: expected a time such as"},
        {{{small, small}, {"interval=60"}, "", false}, "--what-if: expected one scenario"},
    };
    for (const auto& each : cases) {
        try {
            (void)plan(each.options);
            ADD_FAILURE() << "taken: " << each.expected;
        } catch (const Refusal& refusal) {
            EXPECT_EQ(refusal.exit_code, EXIT_UNUSABLE) << refusal.what();
            expect_in(refusal.what(), {each.expected});
        }
    }
}

// The output of a run that nobody would make for real, in pieces that end anywhere.
TEST(PlanReaderTest, TakesPiecesAndPassesByWhatItDoesNotKnow) {
    const std::string output =
        "not JSON\n"
        R"({"type":"event","time":1,"kind":"action","text":"before the beginning"})"
        "\n"
        R"({"type":"begin","scenario":"s","title":"t","targets":[]})"
        "\n"
        R"({"type":"event","time":60,"kind":"action","text":"one"})"
        "\n"
        R"({"type":"event","time":60,"kind":"sessions_lost","text":"not of the scenario"})"
        "\n"
        R"({"type":"event","time":60,"kind":"action","text":"two"})"
        "\n";
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, output.size()}) {
        PlanReader reader;
        for (std::size_t at = 0; at < output.size(); at += piece) {
            reader.take(std::string_view(output).substr(at, piece));
        }
        const Plan plan = reader.finish();
        ASSERT_EQ(plan.phases.size(), 2U);
        EXPECT_EQ(plan.phases[1].events, (std::vector<std::string>{"one", "two"}));
        EXPECT_FALSE(plan.complete);
    }
}
