#include <cstdio>
#include <nlohmann/json.hpp>

#include "view.h"

namespace ostrel_simhost {

namespace {

using Json = nlohmann::ordered_json;

void print(const Json& object) {
    // Bytes that are not UTF-8 (from a log line) are replaced, never thrown about.
    const std::string line = object.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

std::string_view kind_word(Happening::Kind kind) {
    switch (kind) {
        case Happening::Kind::action:
            return "action";
        case Happening::Kind::sessions_made:
            return "sessions_made";
        case Happening::Kind::sessions_lost:
            return "sessions_lost";
        case Happening::Kind::fault:
            return "fault";
        case Happening::Kind::violation:
            return "violation";
        case Happening::Kind::configuration:
            return "configuration";
        case Happening::Kind::failure:
            return "failure";
    }
    return "other";
}

Json json_of(const std::vector<TargetRow>& rows, const std::vector<Address>& addresses) {
    Json targets = Json::array();
    for (const TargetRow& row : rows) {
        Json sessions_by_address = Json::object();
        for (std::size_t i = 0; i < row.per_address.size() && i < addresses.size(); ++i) {
            if (row.per_address[i] >= 0) {
                sessions_by_address[addresses[i].ip] = row.per_address[i];
            }
        }
        targets.push_back({{"name", row.name},
                           {"iqn", row.iqn},
                           {"group_scoped", row.group_scoped},
                           {"mode", row.static_mode ? "static" : "dynamic"},
                           {"mode_changed", row.mode_changed},
                           {"supported", row.supported},
                           {"volumes", row.devices},
                           {"nics", row.nics},
                           {"nics_up", row.nics_up},
                           {"arrays", row.arrays},
                           {"total_arrays", row.total_arrays},
                           {"required", row.required},
                           {"dynamic", row.dynamic_sessions},
                           {"static", row.static_sessions},
                           {"pending", row.pending_sessions},
                           {"sessions", row.sessions()},
                           {"short_by", row.short_by()},
                           {"active_paths", row.active_paths},
                           {"dead_paths", row.dead_paths},
                           {"sessions_by_address", std::move(sessions_by_address)}});
    }
    return targets;
}

Json json_of(const simhost::Totals& totals, int paths) {
    return {{"sessions", totals.sessions},         {"paths", paths},
            {"active_paths", totals.active_paths}, {"dead_paths", totals.dead_paths},
            {"volumes", totals.volumes},           {"targets", totals.targets},
            {"adapters", totals.adapters},         {"nics", totals.nics}};
}

class JsonView final : public View {
public:
    void begin(const RunHead& head, const std::vector<TargetRow>& rows, const std::vector<Address>& addresses,
               const simhost::Totals& totals, int paths) override {
        Json not_taken = Json::array();
        for (const shared::ValueNotTaken& value : head.not_taken) {
            not_taken.push_back(
                {{"key", value.key}, {"written", value.written}, {"in_force", value.in_force}, {"why", value.why}});
        }
        print({{"type", "begin"},
               {"scenario", head.scenario_file},
               {"title", head.title},
               {"for_seconds", head.for_seconds},
               {"speed", head.speed},
               {"root", head.root},
               {"not_taken", std::move(not_taken)},
               {"totals", json_of(totals, paths)},
               {"targets", json_of(rows, addresses)}});
    }

    void serving(const std::string& url, const std::vector<std::string>& commands) override {
        print({{"type", "serving"}, {"url", url}, {"commands", commands}});
    }

    void happening(const Happening& happening) override {
        print({{"type", "event"},
               {"time", happening.time},
               {"kind", kind_word(happening.kind)},
               {"text", happening.text}});
    }

    void pass(const PassRecord& pass) override {
        Json log = Json::array();
        for (const FoldedLogLine& line : pass.log) {
            log.push_back(
                {{"level", line.level}, {"function", line.function}, {"text", line.text}, {"times", line.times}});
        }
        print({{"type", "pass"},
               {"pass", pass.number},
               {"time", pass.began},
               {"ended", pass.ended},
               {"skipped", pass.skipped},
               {"changed", pass.changed_something()},
               {"added", pass.added},
               {"removed", pass.removed},
               {"lost", pass.lost},
               {"rescanned", pass.rescanned},
               {"paths_claimed", pass.paths_claimed},
               {"dead_path_deletion", pass.dead_paths_requested},
               {"dead_paths_deleted", pass.dead_paths_deleted},
               {"rediscovered", pass.rediscovered},
               {"static_targets_removed", pass.static_targets_removed},
               {"log", std::move(log)},
               {"totals", json_of(pass.totals, pass.paths)},
               {"targets", json_of(pass.rows, pass.addresses)}});
    }

    void end(const RunOutcome& outcome, const Verdict& verdict) override {
        Json let_pass = Json::array();
        for (const auto& [hazard, times] : outcome.let_pass) {
            let_pass.push_back(hazard);
        }
        print({{"type", "verdict"},
               {"time", outcome.ended_at},
               {"settled", verdict.settled},
               {"settled_so_far", verdict.settled_so_far},
               {"next_event", outcome.next_action_at < 0 ? Json() : Json(outcome.next_action_at)},
               {"headline", verdict.headline},
               {"reasons", verdict.reasons},
               {"reasons_so_far", verdict.reasons_so_far},
               {"notes", verdict.notes},
               {"totals", json_of(outcome.totals, outcome.paths)},
               {"session_ceiling", simhost::MAX_SESSIONS},
               {"path_limit", simhost::MAX_PATHS},
               {"most_sessions", outcome.most_sessions},
               {"most_paths", outcome.most_paths},
               {"worst_spread", verdict.worst_spread},
               {"worst_spread_target", verdict.worst_spread_target},
               {"violations", outcome.violations},
               {"let_pass", std::move(let_pass)},
               {"let_pass_times", outcome.let_pass},
               {"exit_code", verdict.exit_code},
               {"root", outcome.root},
               {"targets", json_of(outcome.rows, outcome.addresses)}});
    }
};

}  // namespace

std::unique_ptr<View> make_json_view() {
    return std::make_unique<JsonView>();
}

}  // namespace ostrel_simhost
