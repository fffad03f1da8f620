// Character classes for the files that the library reads, independent of the host's locale.
#pragma once

#include <string_view>

namespace oxr {

inline bool is_blank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

inline char to_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline bool equal_ignoring_case(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (to_lower(a[i]) != to_lower(b[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace oxr
