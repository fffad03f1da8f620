#include "configuration/config_judge.h"

#include "common/blank.h"
#include "common/file_reader.h"
#include "common/number.h"
#include "configuration/logs_path_rule.h"

namespace {

bool in_range(std::uint32_t value, std::uint32_t low, std::uint32_t high) {
    return value >= low && value <= high;
}

constexpr std::uint32_t any = UINT32_MAX;

constexpr ConfigKey keys[] = {
    {"interval", "", &ConfigValues::interval, MIN_INTERVAL, MAX_INTERVAL, "interval", true},
    {"min_vol_sessions", "min_volsessions", &ConfigValues::min_vol_sessions, 2, 32, "min_vol_sessions", false},
    {"max_vol_sessions", "max_volsessions", &ConfigValues::max_vol_sessions, 2, 32, "max_volsessions", true},
    {"vol_sessions", "volsessions", &ConfigValues::vol_sessions, 0, any, nullptr, false},
    {"worker_stop", "", &ConfigValues::worker_stop, 0, any, nullptr, false},
    {"log_level", "", &ConfigValues::log_level, 1, 2, nullptr, true},
    {"vmknic_count", "", &ConfigValues::vmknic_count, 0, any, nullptr, false},
    {"min_pe_sessions", "", &ConfigValues::min_pe_sessions, 4, 32, "min_pe_sessions", true},
    {"max_pe_sessions", "", &ConfigValues::max_pe_sessions, 4, 32, "max_pe_sessions", true},
    {"use_ostrel_timeouts", "", &ConfigValues::use_ostrel_timeouts, 0, 1, "use_ostrel_timeouts", true},
};

constexpr std::string_view TIMEOUTS_KEY = "use_ostrel_timeouts";

}  // namespace

const ConfigKey* find_config_key(std::string_view name) {
    for (const ConfigKey& key : keys) {
        if (oxr::equal_ignoring_case(name, key.name) ||
            (!key.old_name.empty() && oxr::equal_ignoring_case(name, key.old_name))) {
            return &key;
        }
    }
    return nullptr;
}

void ConfigJudge::take_line(std::string_view line) {
    line = line.substr(0, line.find('\0'));
    if (oxr::is_comment_line(line)) {
        has_comment_ = true;
        return;
    }
    const std::size_t delimiter = line.find(converting_ ? ':' : '=');
    if (delimiter == std::string_view::npos) {
        take_line_without_delimiter(line);
        return;
    }
    has_key_ = true;
    const std::string_view name = line.substr(0, delimiter);
    // The path has its own rule for the whole file (logs_path_rule.h); here only its presence counts.
    if (oxr::equal_ignoring_case(name, LOGS_PATH_KEY)) {
        has_logs_path_ = true;
    } else if (const ConfigKey* const key = find_config_key(name)) {
        take_value(*key, oxr::read_number(line.substr(delimiter + 1)));
    } else {
        observer_.line_ignored(name, true);
    }
}

void ConfigJudge::take_line_without_delimiter(std::string_view line) {
    const std::size_t old_delimiter = line.find(':');
    has_old_key_ = has_old_key_ || (old_delimiter != std::string_view::npos &&
                                    find_config_key(line.substr(0, old_delimiter)) != nullptr);
    observer_.line_ignored(line, false);
}

// The interval of the old format is not kept, and its NIC count had another meaning.
void ConfigJudge::take_value(const ConfigKey& key, std::uint32_t found) {
    const ConfigValues defaults;
    if (converting_ && key.field == &ConfigValues::vmknic_count) {
        found = defaults.vmknic_count;
    }
    const bool given_up = converting_ && key.field == &ConfigValues::interval;
    const bool accepted = in_range(found, key.low, key.high) && !given_up;
    const std::uint32_t used = accepted ? found : defaults.*key.field;
    rewrite_ = rewrite_ || (!accepted && key.rewrites);
    values_.*key.field = used;
    has_use_ostrel_timeouts_ = has_use_ostrel_timeouts_ || key.name == TIMEOUTS_KEY;
    observer_.value_read(key, found, used, accepted);
}

ConfigFitness ConfigJudge::fitness() const {
    // A file of the current format that could not be read a moment ago must not lose its values to a conversion. A file
    // that could not be converted must keep them for the next attempt.
    if (converting_ && has_comment_) {
        return ConfigFitness::has_comments;
    }
    if (!converting_ && has_old_key_ && !has_key_ && !has_comment_) {
        return ConfigFitness::not_converted;
    }
    return ConfigFitness::fit;
}

void ConfigJudge::finish() {
    const std::uint32_t default_minimum = ConfigValues().min_vol_sessions;
    if (values_.min_vol_sessions > values_.max_vol_sessions) {
        observer_.minimum_above_maximum(values_, default_minimum);
        values_.min_vol_sessions = default_minimum;
        rewrite_ = true;
    }
    if (values_.vol_sessions != 0 &&
        !in_range(values_.vol_sessions, values_.min_vol_sessions, values_.max_vol_sessions)) {
        observer_.vol_sessions_outside(values_);
        values_.vol_sessions = values_.min_vol_sessions;
        rewrite_ = true;
    }
    if (!has_use_ostrel_timeouts_) {
        observer_.key_missing(TIMEOUTS_KEY);
        rewrite_ = true;
    }
    if (!has_logs_path_) {
        observer_.key_missing(LOGS_PATH_KEY);
        rewrite_ = true;
    }
}
