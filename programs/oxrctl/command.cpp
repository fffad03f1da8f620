#include "oxrctl/command.h"

#include <fmt/format.h>

namespace oxrctl {

std::string json_text(const Json& object) {
    return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string count_of(std::size_t number, const std::string& one, const std::string& many) {
    return fmt::format("{} {}", number, number == 1 ? one : many);
}

}  // namespace oxrctl
