// How many sessions the connection manager wants for a target, by its documented rules.
#pragma once

#include "configuration/config_values.h"

namespace shared {

// A volume of `arrays` member arrays whose paths use `nics` host addresses.
int required_for_volume(const ConfigValues& config, int nics, int arrays);

// A group-scoped target served by `active_arrays` of the group's `total_arrays`.
int required_for_group_scoped_target(const ConfigValues& config, int nics, int active_arrays, int total_arrays);

}  // namespace shared
