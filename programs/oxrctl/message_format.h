// The texts of log messages as their printf formats, and which logged text is of which format.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace oxrctl {

// A format with conversions %s %d %u %x %p %c, their flags, and %%; cut once into what stands between them.
class MessageFormat {
public:
    explicit MessageFormat(std::string_view format);

    // Whether `text` can have been printed from it; the printed arguments are then in `arguments`, in their order. A %s
    // takes as little as the rest allows.
    bool match(std::string_view text, std::vector<std::string_view>& arguments) const;
    bool matches(std::string_view text) const;

    // The letters that stand in every text printed from it.
    std::size_t own_letters() const;

private:
    struct Piece {
        char letter;         // of the conversion; 0: the format ends within it
        bool padded;         // may have blanks before or behind it
        std::string behind;  // what follows up to the next conversion
    };

    bool match_from(std::size_t at, std::string_view text, std::vector<std::string_view>& arguments) const;

    std::string begin_;
    std::vector<Piece> pieces_;
};

}  // namespace oxrctl
