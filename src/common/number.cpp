#include "common/number.h"

#include "common/blank.h"

namespace oxr {

std::int32_t read_number(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && is_blank(text[at])) {
        ++at;
    }
    bool negative = false;
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        negative = text[at] == '-';
        ++at;
    }
    std::int64_t value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        value = value * 10 + (text[at] - '0');
        if (value > INT32_MAX) {
            return negative ? INT32_MIN : INT32_MAX;
        }
    }
    return static_cast<std::int32_t>(negative ? -value : value);
}

}  // namespace oxr
