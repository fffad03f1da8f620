// What goes into the picture of a run.
#include <gtest/gtest.h>

#include "programs/ostrel-simhost/plot_data.h"
#include "programs/ostrel-simhost/plot_script.h"

using namespace ostrel_simhost;

namespace {

TargetRow row(const std::string& name, int sessions, int paths) {
    TargetRow result;
    result.name = name;
    result.dynamic_sessions = sessions;
    result.active_paths = paths;
    return result;
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

// Three volumes, of which two take the same course; one goes and one comes.
TEST(Plot, TellsGnuplotCoursesPassesAndEvents) {
    PlotRecord record("a title that isn't plain");
    record.state(0, {row("db-01", 2, 2), row("db-02", 2, 2), row("log", 1, 1)});
    record.pass(10, true);
    record.state(10, {row("db-01", 4, 2), row("db-02", 4, 2), row("log", 1, 1)});
    record.event(60, "NIC 10.0.1.2 lost  (a cable)");
    record.event(60, "and more");
    record.state(60, {row("db-01", 2, 2), row("db-02", 2, 2), row("new", 3, 3)});
    record.pass(130, false);
    const std::string script = plot_script(record.finish(3600), PlotFormat::svg);
    for (const char* const part :
         {"$sessions0 << EOD\n0 2\n10 4\n60 2\n3600 2\nEOD\n", "$paths0 << EOD\n0 2\n3600 2\nEOD\n",
          "$sessions1 << EOD\n0 1\n60 1\n\nEOD\n", "$sessions2 << EOD\n60 3\n3600 3\nEOD\n", "'db-01..db-02 (2)'",
          "'a title that isn''t plain'", "from 10, graph 0 to 10, graph 0.06", "from 130, graph 0 to 130, graph 0.025",
          "'1-2' at 60,", "'NIC 10.0.1.2 lost (a cable)'", "'0:05' 300"}) {
        EXPECT_TRUE(has(script, part)) << part << " in\n" << script;
    }
}

// A login that fails is a gap between the logged-in sessions and all of them; very many paths make the scale one of
// powers; a long text goes on in the next line.
TEST(Plot, HidesNothing) {
    PlotRecord record;
    TargetRow stuck = row("stuck", 0, 2);
    stuck.static_sessions = 2;
    record.state(0, {stuck, row("many", 8, 500), row("few", 4, 4)});
    stuck.pending_sessions = 1;
    stuck.static_sessions = 1;
    record.state(60, {stuck, row("many", 8, 500), row("few", 4, 4)});
    stuck.pending_sessions = 0;
    stuck.dynamic_sessions = stuck.broken_sessions = 1;
    record.state(90, {stuck, row("many", 8, 500), row("few", 4, 4)});
    record.event(60, "array g/a1 lost  (" + std::string(60, 'm') + " the last words)");
    const std::string script = plot_script(record.finish(120), PlotFormat::svg);
    for (const char* const part :
         {"$sessions0 << EOD\n0 2\n60 1\n120 1\nEOD\n", "$all0 << EOD\n60 2\n120 2\nEOD\n", "not logged in",
          "log(1+$2)/log(2)", "'500' 8.9687", "'array g/a1 lost ", "'words)'"}) {
        EXPECT_TRUE(has(script, part)) << part << " in\n" << script;
    }
    EXPECT_FALSE(has(script, "..."));
    EXPECT_FALSE(has(script, "$all1"));
}

TEST(Plot, DrawsTheCurvesOfMostTargetsAndTellsOfTheRest) {
    PlotRecord record;
    std::vector<TargetRow> rows{row("w", 19, 19)};
    for (int i = 0; i < 20; ++i) {
        rows.push_back(row("v" + std::to_string(i), i, i));
    }
    record.state(0, rows);
    const std::string script = plot_script(record.finish(60), PlotFormat::png);
    EXPECT_TRUE(has(script, "$paths11 <<"));
    EXPECT_FALSE(has(script, "$paths12 <<"));
    EXPECT_TRUE(has(script, "'w, v19'"));
    EXPECT_TRUE(has(script, "'not drawn: 8 more curves'"));
}
