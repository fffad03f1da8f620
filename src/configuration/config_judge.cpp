#include "configuration/config_judge.h"

#include "common/blank.h"
#include "common/file_reader.h"
#include "common/number.h"

namespace {

bool in_range(std::uint32_t value, std::uint32_t low, std::uint32_t high) {
    return value >= low && value <= high;
}

}  // namespace

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
    const ConfigKey* const key = find_config_key(name);
    if (key == nullptr) {
        observer_.line_ignored(name, true);
        return;
    }
    seen_.set(static_cast<std::size_t>(key - config_keys));
    if (key->number != nullptr) {
        take_value(*key, oxr::read_number(line.substr(delimiter + 1)));
    }
}

void ConfigJudge::take_line_without_delimiter(std::string_view line) {
    const std::size_t old_delimiter = line.find(':');
    if (old_delimiter != std::string_view::npos) {
        const ConfigKey* const key = find_config_key(line.substr(0, old_delimiter));
        has_old_key_ = has_old_key_ || (key != nullptr && key->number != nullptr);
    }
    observer_.line_ignored(line, false);
}

void ConfigJudge::take_value(const ConfigKey& key, std::uint32_t found) {
    const bool given_up = converting_ && !key.in_old_format;
    const bool accepted = in_range(found, key.low, key.high) && !given_up;
    const std::uint32_t used = accepted ? found : ConfigValues().*key.number;
    rewrite_ = rewrite_ || (!accepted && key.rewrites);
    values_.*key.number = used;
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
    for (const ConfigKey& key : config_keys) {
        if (key.must_be_there && !has(key)) {
            observer_.key_missing(key.name);
            rewrite_ = true;
        }
    }
}
