// Object paths.
#include <utility>

#include "cimserver/broker/objects.h"
#include "cimserver/broker/path_text.h"

namespace cimserver {

namespace {

// The three texts of a path, alike: the member is what tells the entries apart.
template <std::string ObjectPath::*member>
void set_text(CMPIObjectPath* path, const char* text) {
    object(path).path.*member = needed(text);
}

template <std::string ObjectPath::*member>
CMPIString* get_text(const CMPIObjectPath* path) {
    return new_string(object(path).path.*member);
}

void add_key(CMPIObjectPath* path, const char* name, const CMPIValue* value, CMPIType type) {
    CimValue key = from_cmpi(value, type);
    if (key.is_null()) {
        throw EntryRefusal{CMPI_RC_ERR_INVALID_PARAMETER};
    }
    if (key.is_array() || key.type == CMPI_instance) {
        throw EntryRefusal{CMPI_RC_ERR_INVALID_DATA_TYPE};
    }
    set(list_of(path), needed(name), std::move(key));
}

void set_name_space_from(CMPIObjectPath* path, const CMPIObjectPath* source) {
    object(path).path.name_space = object(source).path.name_space;
}

void set_host_and_name_space_from(CMPIObjectPath* path, const CMPIObjectPath* source) {
    object(path).path.host = object(source).path.host;
    set_name_space_from(path, source);
}

CMPIString* path_to_string(const CMPIObjectPath* path) {
    return new_string(path_text(object(path).path));
}

}  // namespace

const CMPIObjectPathFT path_table = {
    .ftVersion = CMPIVersion200,
    .release = entry<release<CMPIObjectPath>>,
    .clone = entry<clone<CMPIObjectPath>>,
    .setNameSpace = entry<set_text<&ObjectPath::name_space>>,
    .getNameSpace = entry<get_text<&ObjectPath::name_space>>,
    .setHostname = entry<set_text<&ObjectPath::host>>,
    .getHostname = entry<get_text<&ObjectPath::host>>,
    .setClassName = entry<set_text<&ObjectPath::class_name>>,
    .getClassName = entry<get_text<&ObjectPath::class_name>>,
    .addKey = entry<add_key>,
    .getKey = entry<get<CMPIObjectPath>>,
    .getKeyAt = entry<get_at<CMPIObjectPath>>,
    .getKeyCount = entry<count<CMPIObjectPath>>,
    .setNameSpaceFromObjectPath = entry<set_name_space_from>,
    .setHostAndNameSpaceFromObjectPath = entry<set_host_and_name_space_from>,
    .getClassQualifier = not_supported,
    .getPropertyQualifier = not_supported,
    .getMethodQualifier = not_supported,
    .getParameterQualifier = not_supported,
    .toString = entry<path_to_string>,
};

std::string path_text(const ObjectPath& path) {
    std::string text = path.name_space + ":" + path.class_name;
    char separator = '.';
    for (const Named& key : path.keys) {
        text += separator + key.name + "=";
        if (const ObjectPath* const reference = reference_in(key.value)) {
            text += "{" + path_text(*reference) + "}";
        } else if (key.value.type == CMPI_string) {
            text += "\"" + value_text(key.value) + "\"";
        } else {
            text += value_text(key.value);
        }
        separator = ',';
    }
    return text;
}

}  // namespace cimserver
