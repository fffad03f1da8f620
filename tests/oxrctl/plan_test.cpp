#include <gtest/gtest.h>

#include "oxrctl/plan_story.h"

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

}  // namespace oxrctl
