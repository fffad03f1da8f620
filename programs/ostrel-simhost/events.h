// The events of a time line: the key of each, how it is read, what it does and how it is told.
#pragma once

#include <span>
#include <string_view>

#include "names.h"
#include "scenario.h"

namespace ostrel_simhost {

// An event while it is read.
struct EventInput {
    Problems& problems;
    Names& names;
    Fields& fields;  // of the event
    std::string_view key;
    const TomlValue& value;  // of the key

    NameReader reader() const { return {problems, names}; }
    std::string path() const { return fields.key_name(key); }
};

struct EventKind {
    std::string_view key;
    // Complains about what doesn't fit, and then returns something that is never carried out.
    Action (*read)(const EventInput& in);
    // What is expected where no table stands. Empty: the value isn't a table.
    std::string_view table = {};
    // It brings in names, which any event may refer to wherever it is written.
    bool brings_in = false;
};

std::span<const EventKind> event_kinds();

}  // namespace ostrel_simhost
