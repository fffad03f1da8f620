// Text in fixed-size fields. A field holds as many characters as it is wide, and is terminated only if its text is
// shorter. Use only these helpers to read and write such fields.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace oxr {

// The text of a field, up to its terminator or its end. Valid as long as the field.
inline std::string_view field_view(const char* field, std::size_t capacity) {
    return {field, strnlen(field, capacity)};
}

template <std::size_t N>
std::string_view field_view(const char (&field)[N]) {
    return field_view(field, N);
}

// Copies at most `capacity` characters and zeroes the rest. A text that fills the field is not terminated.
inline void copy_field(char* field, std::size_t capacity, std::string_view text) {
    const std::size_t length = text.size() < capacity ? text.size() : capacity;
    std::memcpy(field, text.data(), length);
    std::memset(field + length, 0, capacity - length);
}

template <std::size_t N>
void copy_field(char (&field)[N], std::string_view text) {
    copy_field(field, N, text);
}

// Copies at most `N` - 1 characters; the field is always terminated.
template <std::size_t N>
void copy_text(char (&field)[N], std::string_view text) {
    copy_field(field, N - 1, text);
    field[N - 1] = '\0';
}

// A terminated copy of a field, for logging and for calls that need a C string.
template <std::size_t N>
class FieldText {
public:
    explicit FieldText(const char (&field)[N]) {
        const std::string_view text = field_view(field);
        std::memcpy(text_, text.data(), text.size());
        text_[text.size()] = '\0';
    }
    const char* c_str() const { return text_; }

private:
    char text_[N + 1];
};

// The system's text for an errno or pthread result. Valid until the thread's next call.
const char* error_text(int error);

}  // namespace oxr
