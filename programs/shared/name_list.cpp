#include "shared/name_list.h"

#include <fmt/format.h>

namespace shared {

namespace {

// A name split before its number: "db-", 12, width 2.
struct Numbered {
    std::string stem;
    long number = -1;
    std::size_t width = 0;
};

Numbered numbered(const std::string& name) {
    constexpr std::size_t most_digits = 9;
    std::size_t digits = 0;
    while (digits < name.size() && digits < most_digits && name[name.size() - 1 - digits] >= '0' &&
           name[name.size() - 1 - digits] <= '9') {
        ++digits;
    }
    if (digits == 0) {
        return {name};
    }
    return {name.substr(0, name.size() - digits), std::stol(name.substr(name.size() - digits)), digits};
}

}  // namespace

std::string name_list(const std::vector<std::string>& names, std::size_t most) {
    std::string text;
    std::size_t pieces = 0;
    for (std::size_t i = 0; i < names.size();) {
        std::size_t end = i + 1;
        Numbered last = numbered(names[i]);
        while (end < names.size() && last.number >= 0) {
            const Numbered next = numbered(names[end]);
            if (next.stem != last.stem || next.width != last.width || next.number != last.number + 1) {
                break;
            }
            last = next;
            ++end;
        }
        if (++pieces > most) {
            return fmt::format("{}, ... ({} in all)", text, names.size());
        }
        text += text.empty() ? "" : ", ";
        text += end - i > 1 ? fmt::format("{}..{}", names[i], names[end - 1]) : names[i];
        i = end;
    }
    return names.size() > pieces ? fmt::format("{} ({})", text, names.size()) : text;
}

}  // namespace shared
