#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "oxrctl/plan_from_log.h"
#include "oxrctl/plan_pair.h"
#include "oxrctl/plan_run.h"
#include "shared/child_process.h"
#include "shared/name_list.h"

namespace fs = std::filesystem;

namespace oxrctl {

// The output of a run that nobody would make for real, in pieces that end anywhere.
TEST(PlanReader, TakesPiecesAndPassesByWhatItDoesNotKnow) {
    const std::string output = R"(not JSON
{"type":"event","time":1,"kind":"action","text":"before the beginning"}
{"type":"begin","scenario":"s","title":"t","not_taken":[],"targets":[]}
{"type":"event","time":60,"kind":"action","text":"one"}
{"type":"event","time":60,"kind":"sessions_lost","text":"not of the scenario"}
{"type":"event","time":60,"kind":"action","text":"two"}
)";
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

namespace {

std::map<std::string, int> sessions_of(const Plan& plan) {
    std::map<std::string, int> sessions;
    for (const PlanTarget& target : plan.targets) {
        sessions[target.name] = target.sessions;
    }
    return sessions;
}

// The targets for which the host made from the log in `root` doesn't settle where that log's host ended.
std::vector<std::string> differing_targets(const Plan& ended, const ScenarioFromLog& made) {
    const auto wanted = sessions_of(ended), found = sessions_of(run_plans({{"made", {}, "20m", made.text}}).front());
    std::vector<std::string> names;
    for (const auto& [name, sessions] : wanted) {
        if (!found.contains(name) || found.at(name) != sessions) {
            names.push_back(name);
        }
    }
    EXPECT_EQ(wanted.size(), found.size());
    return names;
}

}  // namespace

TEST(PlanFromLog, EndsWhereTheLogEndedOrNamesWhatIsGuessed) {
    const std::string programs = OXR_PROGRAMS_DIR "/ostrel-simhost";
    setenv("PATH", (programs + ":" + getenv("PATH")).c_str(), 1);
    const fs::path folder = fs::path(testing::TempDir()) / ("plan-from-log-" + std::to_string(getpid()));
    int compared = 0;
    for (const auto& file : fs::recursive_directory_iterator(OXR_SOURCE_DIR "/scenarios")) {
        if (file.path().extension() != ".toml") {
            continue;
        }
        const std::string root = folder / file.path().stem();
        fs::create_directories(root);
        PlanReader reader;
        shared::ChildProcess simhost;
        simhost.command = {"ostrel-simhost", "--json", "--root", root, "--", file.path()};
        simhost.on_output = [&](std::string_view piece) { reader.take(piece); };
        shared::run_child(simhost);
        ScenarioFromLog made;
        try {
            made = scenario_from_log(root + "/var/log/ostrel/oxr.log", "");
        } catch (const Refusal& refusal) {
            // Its only volume has lost all paths, so that the last pass doesn't tell of it.
            EXPECT_EQ(file.path().stem(), "working-session-removed") << refusal.what();
            continue;
        }
        const auto differing = differing_targets(reader.finish(), made);
        EXPECT_TRUE(differing.empty() || std::any_of(made.guesses.begin(), made.guesses.end(),
                                                     [&](const auto& guess) {
                                                         return guess.ends_with(": " + shared::name_list(differing));
                                                     }))
            << file.path() << ": " << shared::name_list(differing) << "\n"
            << made.text;
        ++compared;
    }
    EXPECT_GT(compared, 12);
    fs::remove_all(folder);
}

TEST(Plan, TellsAKnownHazardOnce) {
    Plan plan;
    plan.violations = {"2.000 s: a lost (known hazard: h)", "9.000 s: b lost (known hazard: h)", "3.000 s: odd",
                       "after the end: 1 lists", "4.000 s: odd"};
    EXPECT_EQ(broken_invariants(plan),
              (std::vector<std::string>{"2.000 s: a lost (known hazard: h), and 1 more like it",
                                        "3.000 s: odd, and 1 more like it", "after the end: 1 lists"}));
}

}  // namespace oxrctl
