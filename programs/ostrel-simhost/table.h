// The table of targets, as lines of text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "record.h"

namespace ostrel_simhost {

enum class Ink { plain, head, good, poor, bad, event };

// Wraps text in the terminal's codes, or not.
class Pen {
public:
    explicit Pen(bool colours) : colours_(colours) {}
    std::string operator()(Ink ink, std::string_view text) const;

private:
    bool colours_;
};

inline constexpr std::size_t UNLIMITED_WIDTH = 10000;

// A head line and one line per target; targets alike in all columns share a line. At most `most` targets, then how many
// more there are. In less `width` than the columns need, names and the sessions per address get lines of their own.
std::vector<std::string> table_lines(const std::vector<TargetRow>& rows, const std::vector<Address>& addresses,
                                     const Pen& pen, std::size_t width = UNLIMITED_WIDTH, std::size_t most = 30);

// "1 = 10.0.1.11 (vmhba64)", ...: which column of the last column is which address.
std::vector<std::string> address_legend(const std::vector<Address>& addresses);

}  // namespace ostrel_simhost
