#include "cimserver/cimxml/status_text.h"

#include <iterator>

namespace cimserver {

std::string_view status_text(CMPIrc code) {
    constexpr std::string_view texts[] = {
        "success",
        "failed",
        "access denied",
        "invalid namespace",
        "invalid parameter",
        "invalid class",
        "not found",
        "not supported",
        "class has children",
        "class has instances",
        "invalid superclass",
        "already exists",
        "no such property",
        "type mismatch",
        "query language not supported",
        "invalid query",
        "method not available",
        "method not found",
    };
    return code < std::size(texts) ? texts[code] : "the provider failed";
}

}  // namespace cimserver
