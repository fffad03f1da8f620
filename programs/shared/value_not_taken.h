// A value of a configuration file that isn't the one in force.
#pragma once

#include <string>

namespace shared {

struct ValueNotTaken {
    std::string key, written, in_force, why;
};

// "vol_sessions=16 is not taken, 2 is in force: not between ..."
std::string not_taken_text(const ValueNotTaken& value);

}  // namespace shared
