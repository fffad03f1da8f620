#include "configuration/config_keys.h"

#include "common/blank.h"

const ConfigKey* find_config_key(std::string_view name) {
    for (const ConfigKey& key : config_keys) {
        if (oxr::equal_ignoring_case(name, key.name) ||
            (!key.old_name.empty() && oxr::equal_ignoring_case(name, key.old_name))) {
            return &key;
        }
    }
    return nullptr;
}
