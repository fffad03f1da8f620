// What the service makes of a configuration file, by the service's own judgement.
#pragma once

#include <string>
#include <vector>

#include "oxrctl/command.h"

namespace oxrctl {

struct ConfigReport {
    struct KeyValue {
        std::string key;
        std::string in_file;  // as written; empty with no lines: the key isn't there
        std::string
            in_force;  // what the service goes by: a running one, or one that starts if only that takes the file
        std::string at_start;    // what one that starts goes by
        std::string why;         // empty: it is the value in the file
        std::vector<int> lines;  // where the key stands; the last one counts
        bool corrected = false;
    };
    struct IgnoredLine {
        int line = 0;
        std::string text;
        std::string why;
    };
    // A character that an editor doesn't show.
    struct HiddenCharacter {
        int line = 0;
        std::string what;
    };
    // What a running service does with the file, and what one that starts does.
    struct Reading {
        bool refuses = false;   // a running one keeps its values, one that starts goes by the defaults
        std::string rewritten;  // what it writes; empty: nothing
    };

    bool old_format = false;
    std::vector<KeyValue> values;  // every key, in the order of the canonical file
    std::vector<IgnoredLine> ignored;
    std::vector<HiddenCharacter> hidden;
    Reading running, start;
    std::vector<std::string> notes;            // what else an administrator should know
    std::vector<std::string> rewrite_reasons;  // empty: the file stays as it is
    std::string rewritten;                     // what the service would write, as for in_force; empty: nothing
    std::string diff;                          // to that; unified

    bool is_clean() const;
    bool readings_differ() const;
};

// Reads the file and judges it. Throws a Refusal when it can't be read, or can be no configuration file.
ConfigReport judge_config_file(const std::string& file);

}  // namespace oxrctl
