#include "common/number.h"

#include <algorithm>

#include "common/blank.h"

namespace oxr {

std::uint32_t read_number(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && is_blank(text[at])) {
        ++at;
    }
    bool negative = false;
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        negative = text[at] == '-';
        ++at;
    }
    constexpr std::int64_t beyond = std::int64_t{UINT32_MAX} + 1;
    std::int64_t value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        value = std::min(value * 10 + (text[at] - '0'), beyond);
    }
    if (negative) {
        value = std::max<std::int64_t>(-value, INT32_MIN);
    } else if (value == beyond) {
        value = INT32_MAX;
    }
    return static_cast<std::uint32_t>(value);
}

}  // namespace oxr
