#include "shared/value_not_taken.h"

#include <fmt/format.h>

namespace shared {

std::string not_taken_text(const ValueNotTaken& value) {
    return fmt::format("{}={} is not taken, {} is in force: {}", value.key, value.written, value.in_force, value.why);
}

}  // namespace shared
