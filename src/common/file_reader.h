// Reads text files of any size and content through a fixed buffer.
#pragma once

#include <cstddef>
#include <string_view>

#include "common/descriptor.h"

namespace oxr {

class FileReader {
public:
    // Of a longer line only so much is read.
    static constexpr std::size_t line_capacity = 255;

    explicit FileReader(const char* path);

    bool opened() const { return file_.valid(); }
    // errno of the failed open or read, or 0. Only regular files are opened.
    int error() const { return error_; }

    // The next byte, or -1 at the end of the file and after a failed read (see error()).
    int next();

    // The next line, with its line feed, at most 255 characters; the rest of a longer line is skipped. False at
    // the end. The text is valid until the next call.
    bool next_line(std::string_view& line);

private:
    Descriptor file_;
    int error_ = 0;
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
    char line_[line_capacity];
    char buffer_[4096];
};

// Whether the first non-blank character of the line is "#".
bool is_comment_line(std::string_view line);

}  // namespace oxr
