// What a run is shown through: text for a person, or a JSON object per line.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "record.h"
#include "scenario.h"
#include "verdict.h"

namespace ostrel_simhost {

struct RunHead {
    std::string scenario_file;
    std::string title;
    std::string root;
    std::string library;
    double for_seconds = 0;
    std::string speed;  // "instant", "real", "10-fold"
    std::vector<shared::ValueNotTaken> not_taken;
};

class View {
public:
    virtual ~View() = default;
    virtual void begin(const RunHead& head, const std::vector<TargetRow>& rows, const std::vector<Address>& addresses,
                       const simhost::Totals& totals, int paths) = 0;
    // `url`: where WBEM clients reach it; `commands`: some to try.
    virtual void serving(const std::string& url, const std::vector<std::string>& commands) = 0;
    virtual void happening(const Happening& happening) = 0;
    virtual void state(const StateRecord&) {}  // only with RunOptions::plot
    virtual void pass(const PassRecord& pass) = 0;
    virtual void end(const RunOutcome& outcome, const Verdict& verdict) = 0;
};

// `colours`: on a terminal. `live`: every pass is told when it ends; otherwise passes that changed nothing are
// drawn together.
std::unique_ptr<View> make_text_view(bool colours, bool live);
std::unique_ptr<View> make_json_view();

}  // namespace ostrel_simhost
