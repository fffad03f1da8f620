#include "table.h"

#include <fmt/format.h>

#include <algorithm>

#include "shared/name_list.h"
#include "verdict.h"

namespace ostrel_simhost {

namespace {

constexpr std::size_t NAME_WIDTH = 34;  // a longer name moves its own line only
constexpr std::size_t LEAST_NAME_WIDTH = 20;
constexpr std::string_view TARGET = "target";
constexpr std::string_view HEAD = "mode     NICs arrays  need   dyn  sta pend   paths  dead";
constexpr std::string_view ADDRESSES_HEAD = "sessions per address", SHORT_ADDRESSES_HEAD = "per address";

// Where the cells stand in lines of some width.
struct Layout {
    std::size_t name_width = NAME_WIDTH;
    bool is_narrow = false;        // too long names have a line of their own
    bool folds_addresses = false;  // the sessions per address, too

    Layout(std::size_t width, std::size_t addresses) {
        constexpr std::size_t digits = 3, blanks = 4;
        const auto rest = [&](std::string_view addresses_head) {
            return blanks + HEAD.size() + std::max(1 + digits * addresses, 2 + addresses_head.size());
        };
        is_narrow = width < NAME_WIDTH + rest(ADDRESSES_HEAD);
        folds_addresses = is_narrow && width < LEAST_NAME_WIDTH + rest(SHORT_ADDRESSES_HEAD);
        const std::size_t others = folds_addresses ? blanks + HEAD.size() : rest(SHORT_ADDRESSES_HEAD);
        if (is_narrow) {
            name_width = width < LEAST_NAME_WIDTH + others ? TARGET.size() : std::min(width - others, NAME_WIDTH);
        }
    }

    std::string addresses_head() const {
        return folds_addresses ? "" : fmt::format("  {}", is_narrow ? SHORT_ADDRESSES_HEAD : ADDRESSES_HEAD);
    }
};

std::string of_total(int value, int total) {
    return value == total ? fmt::format("{}", value) : fmt::format("{}/{}", value, total);
}

std::string address_cells(const TargetRow& row, const std::vector<Address>& addresses) {
    std::string text;
    for (std::size_t i = 0; i < row.per_address.size() && i < addresses.size(); ++i) {
        const int count = row.per_address[i];
        text += count < 0 ? "  ." : count == 0 && !addresses[i].up ? "  x" : fmt::format(" {:2}", count);
    }
    return text;
}

std::string line_of(const TargetRow& row, const std::string& name, const std::vector<Address>& addresses,
                    const Pen& pen, const Layout& layout) {
    const bool balanced = !row.static_mode && row.supported;
    const std::string mode = row.static_mode ? "static" : row.supported ? "dynamic" : "unsupp.";
    const std::string need = balanced ? fmt::format("{:5}", row.required) : fmt::format("{:>5}", "-");
    const Ink sessions_ink = !balanced ? Ink::plain : row.dynamic_sessions == row.required ? Ink::good : Ink::poor;
    const Ink paths_ink = !balanced || row.group_scoped      ? Ink::plain
                          : row.active_paths == row.required ? Ink::good
                                                             : Ink::poor;
    const std::string counts = address_cells(row, addresses);
    const bool name_apart = layout.is_narrow && name.size() > layout.name_width;
    return fmt::format(
        "  {}{:<{}}  {:<7}{} {:>4} {:>6} {} {} {} {} {} {}{}", name_apart ? name + "\n  " : "", name_apart ? "" : name,
        layout.name_width, mode, row.mode_changed ? "*" : " ", of_total(row.nics, std::max(row.nics, row.nics_up)),
        of_total(row.arrays, row.total_arrays), need, pen(sessions_ink, fmt::format("{:5}", row.dynamic_sessions)),
        fmt::format("{:4}", row.static_sessions),
        pen(row.pending_sessions > 0 ? Ink::poor : Ink::plain, fmt::format("{:4}", row.pending_sessions)),
        pen(paths_ink, fmt::format("{:7}", row.active_paths)),
        pen(row.dead_paths > 0 ? Ink::bad : Ink::plain, fmt::format("{:5}", row.dead_paths)),
        layout.folds_addresses ? fmt::format("\n    {} {}", SHORT_ADDRESSES_HEAD, counts) : " " + counts);
}

struct Line {
    const TargetRow* row;
    std::vector<std::string> names;
};

}  // namespace

std::string Pen::operator()(Ink ink, std::string_view text) const {
    if (!colours_ || ink == Ink::plain) {
        return std::string(text);
    }
    const std::string_view code = ink == Ink::head    ? "1"
                                  : ink == Ink::good  ? "32"
                                  : ink == Ink::poor  ? "33"
                                  : ink == Ink::event ? "36"
                                                      : "1;31";
    return fmt::format("\x1b[{}m{}\x1b[0m", code, text);
}

std::vector<std::string> table_lines(const std::vector<TargetRow>& rows, const std::vector<Address>& addresses,
                                     const Pen& pen, std::size_t width, std::size_t most) {
    std::vector<Line> grouped;
    for (const TargetRow& row : rows) {
        const auto same =
            std::find_if(grouped.begin(), grouped.end(), [&](const Line& line) { return line.row->same_state(row); });
        if (same == grouped.end()) {
            grouped.push_back({&row, {row.name}});
        } else {
            same->names.push_back(row.name);
        }
    }
    std::vector<std::string> lines;
    const Layout layout(width, addresses.size());
    lines.push_back(
        pen(Ink::head, fmt::format("  {:<{}}  {}{}", TARGET, layout.name_width, HEAD, layout.addresses_head())));
    for (std::size_t i = 0; i < grouped.size() && i < most; ++i) {
        const TargetRow& row = *grouped[i].row;
        std::string name = shared::name_list(grouped[i].names, 2);
        if (name.size() > layout.name_width) {
            name = shared::name_list(grouped[i].names, 1);
        }
        if (row.group_scoped) {
            name += fmt::format(" [{} volume{}]", row.devices, row.devices == 1 ? "" : "s");
        }
        lines.push_back(line_of(row, name, addresses, pen, layout));
    }
    if (grouped.size() > most) {
        lines.push_back(fmt::format("  ... and {} lines more", grouped.size() - most));
    }
    return lines;
}

std::vector<std::string> address_legend(const std::vector<Address>& addresses) {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        const bool same_adapter = i > 0 && addresses[i].adapter == addresses[i - 1].adapter;
        if (!same_adapter) {
            lines.push_back(fmt::format("{}:", addresses[i].adapter));
        }
        lines.back() += fmt::format(" {} = {}", i + 1, addresses[i].ip);
    }
    return lines;
}

}  // namespace ostrel_simhost
