#include "common/text.h"

#include <cstdio>

namespace oxr {

namespace {

// strerror_r has two published forms; which one is declared depends on the C library's feature macros.
[[maybe_unused]] const char* text_of(const char* gnu_result, const char*) {
    return gnu_result;
}
[[maybe_unused]] const char* text_of(int, const char* buffer) {
    return buffer;
}

}  // namespace

const char* error_text(int error) {
    thread_local char buffer[128];
    buffer[0] = '\0';
    return text_of(strerror_r(error, buffer, sizeof buffer), buffer);
}

}  // namespace oxr
