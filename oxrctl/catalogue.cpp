#include "oxrctl/catalogue.h"

namespace oxrctl {

const Catalogue& catalogue() {
    static const Catalogue empty;
    return empty;
}

const MessageEntry* find_message(std::string_view) {
    return nullptr;
}

}  // namespace oxrctl
