// Validates the text of a configuration file: which values are in force, what is wrong, and whether the file must be
// rewritten. Reads, logs and writes nothing: that is up to the caller.
#pragma once

#include <bitset>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "configuration/config_keys.h"
#include "configuration/config_values.h"

// Receives the findings in the order of validation. Override only what you need.
class ConfigObserver {
public:
    // The line of a key with a number: the number in the line and the number that is used. They differ if it is not
    // accepted.
    virtual void value_read(const ConfigKey& /*key*/, std::uint32_t /*found*/, std::uint32_t /*used*/,
                            bool /*accepted*/) {}
    // A line that is neither a comment nor a key of the file's format. `name` is the text before the delimiter, or the
    // whole line if `has_delimiter` is false.
    virtual void line_ignored(std::string_view /*name*/, bool /*has_delimiter*/) {}
    // Values that contradict each other, before their correction.
    virtual void minimum_above_maximum(const ConfigValues& /*values*/, std::uint32_t /*default_minimum*/) {}
    virtual void vol_sessions_outside(const ConfigValues& /*values*/) {}
    // A key that every rewritten file has is missing.
    virtual void key_missing(std::string_view /*name*/) {}

protected:
    ~ConfigObserver() = default;
};

// Whether the values may be used and the file may be rewritten with them.
enum class ConfigFitness {
    fit,
    has_comments,   // cannot be converted: only files of the current format have comment lines
    not_converted,  // contains keys in the old format only
};

// Pass it the file's lines one by one, then call finish(). `observer` must outlive it.
class ConfigJudge {
public:
    // `converting`: the lines have the old format (key, ":", value).
    ConfigJudge(bool converting, ConfigObserver& observer)
        : observer_(observer), converting_(converting), rewrite_(converting) {}

    // A line of the file, with or without its line feed. The caller cuts lines at 255 characters.
    void take_line(std::string_view line);
    ConfigFitness fitness() const;
    // Corrects values that contradict each other. Call it once, after the last line.
    void finish();

    // The logs path in them is the default: it has its own rule (logs_path_rule.h).
    const ConfigValues& values() const { return values_; }
    bool has_logs_path() const { return has(*find_config_key(LOGS_PATH_KEY)); }
    bool wants_rewrite() const { return rewrite_; }

private:
    bool has(const ConfigKey& key) const { return seen_[static_cast<std::size_t>(&key - config_keys)]; }
    void take_value(const ConfigKey& key, std::uint32_t found);
    void take_line_without_delimiter(std::string_view line);

    ConfigObserver& observer_;
    const bool converting_;
    bool rewrite_;
    ConfigValues values_;
    std::bitset<std::size(config_keys)> seen_;
    bool has_comment_ = false;
    bool has_key_ = false;
    bool has_old_key_ = false;  // in the other format
};
