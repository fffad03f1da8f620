// The lines of a log, one after the other, in constant memory.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace oxrctl {

class LineReader {
public:
    // No message is that long; a longer line comes in pieces.
    static constexpr std::size_t BUFFER_BYTES = 256 << 10;

    // Reads from the descriptor's place on; doesn't close it.
    explicit LineReader(int descriptor);

    // The next line without its line end (LF or CR LF); valid until the next call. False at the end and after an error.
    bool next(std::string_view& line);

    // errno of the failed read, or 0.
    int error() const { return error_; }

private:
    bool fill();

    int descriptor_;
    int error_ = 0;
    bool ended_ = false;
    std::unique_ptr<char[]> buffer_;
    std::size_t at_ = 0, filled_ = 0;
};

}  // namespace oxrctl
