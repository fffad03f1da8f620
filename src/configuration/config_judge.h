// Judges the text of a configuration file: which values it puts in force, what of it is wrong, and whether the file
// is to be rewritten. Nothing is read, logged or written here: the reader does that, and whoever else wants to know.
#pragma once

#include <bitset>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "configuration/config_keys.h"
#include "configuration/config_values.h"

// What is noticed on the way, in the order of the judging; whoever watches takes what concerns it.
class ConfigObserver {
public:
    // The line of a key with a number: the one in it, and what is used instead when that isn't accepted.
    virtual void value_read(const ConfigKey& /*key*/, std::uint32_t /*found*/, std::uint32_t /*used*/,
                            bool /*accepted*/) {}
    // A line that is neither comment nor key of the file's format. `name`: what stands before the delimiter; without
    // one `has_delimiter` is false and the name is the line.
    virtual void line_ignored(std::string_view /*name*/, bool /*has_delimiter*/) {}
    // The relations between the values, with those that are about to be corrected.
    virtual void minimum_above_maximum(const ConfigValues& /*values*/, std::uint32_t /*default_minimum*/) {}
    virtual void vol_sessions_outside(const ConfigValues& /*values*/) {}
    // A key that every rewritten file has isn't there.
    virtual void key_missing(std::string_view /*name*/) {}

protected:
    ~ConfigObserver() = default;
};

// Whether what was judged may be taken for the file's values and written over them.
enum class ConfigFitness {
    fit,
    has_comments,   // it was to be converted, but only a file of the current format has comment lines
    not_converted,  // it holds keys in the old format only
};

// Takes the file's lines one by one, then finish(). `observer` must outlive it.
class ConfigJudge {
public:
    // `converting`: the lines are a key, ":" and a value, the old format.
    ConfigJudge(bool converting, ConfigObserver& observer)
        : observer_(observer), converting_(converting), rewrite_(converting) {}

    // A line as the file has it, with or without its line feed; at most 255 characters are looked at by the caller's
    // choice.
    void take_line(std::string_view line);
    ConfigFitness fitness() const;
    // Corrects the relations between the values; once, after the last line.
    void finish();

    // The logs path in it is the default: it has a rule of its own (logs_path_rule.h).
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
