// Object paths.
#include <utility>

#include "cimserver/broker/objects.h"
#include "cimserver/broker/path_text.h"

namespace cimserver {

namespace {

ObjectPath& path_of(const CMPIObjectPath* path) {
    return object<PathObject>(path).path;
}

CMPIObjectPath* clone_path(const CMPIObjectPath* path, CMPIStatus* status) {
    return guarded<CMPIObjectPath*>(status, nullptr,
                                    [&] { return own_clone<PathObject, CMPIObjectPath>(path_of(path)); });
}

// The three texts of a path, alike: the member is what tells the entries apart.
template <std::string ObjectPath::*member>
CMPIStatus set_text(CMPIObjectPath* path, const char* text) {
    return guarded_status([&] { path_of(path).*member = needed(text); });
}

template <std::string ObjectPath::*member>
CMPIString* get_text(const CMPIObjectPath* path, CMPIStatus* status) {
    return guarded<CMPIString*>(status, nullptr, [&] { return new_string(path_of(path).*member); });
}

CMPIStatus add_key(CMPIObjectPath* path, const char* name, const CMPIValue* value, CMPIType type) {
    return guarded_status([&] {
        Value key = from_cmpi(value, type);
        if (key.is_null()) {
            throw Refusal{CMPI_RC_ERR_INVALID_PARAMETER};
        }
        if (key.is_array() || key.type == CMPI_instance) {
            throw Refusal{CMPI_RC_ERR_INVALID_DATA_TYPE};
        }
        set(path_of(path).keys, needed(name), std::move(key));
    });
}

CMPIData get_key(const CMPIObjectPath* path, const char* name, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] {
        CMPIData data = get_named(path_of(path).keys, name);
        data.state |= CMPI_keyValue;
        return data;
    });
}

CMPIData get_key_at(const CMPIObjectPath* path, CMPICount index, CMPIString** name, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] {
        CMPIData data = get_named_at(path_of(path).keys, index, name);
        data.state |= CMPI_keyValue;
        return data;
    });
}

CMPICount get_key_count(const CMPIObjectPath* path, CMPIStatus* status) {
    return guarded<CMPICount>(status, 0, [&] { return static_cast<CMPICount>(path_of(path).keys.size()); });
}

CMPIStatus set_name_space_from(CMPIObjectPath* path, const CMPIObjectPath* source) {
    return guarded_status([&] { path_of(path).name_space = path_of(source).name_space; });
}

CMPIStatus set_host_and_name_space_from(CMPIObjectPath* path, const CMPIObjectPath* source) {
    return guarded_status([&] {
        path_of(path).host = path_of(source).host;
        path_of(path).name_space = path_of(source).name_space;
    });
}

template <typename... Names>
CMPIData no_qualifier(const CMPIObjectPath*, Names..., CMPIStatus* status) {
    put(status, CMPI_RC_ERR_NOT_SUPPORTED);
    return NO_DATA;
}

CMPIString* path_to_string(const CMPIObjectPath* path, CMPIStatus* status) {
    return guarded<CMPIString*>(status, nullptr, [&] { return new_string(path_text(path_of(path))); });
}

}  // namespace

const CMPIObjectPathFT path_table = {
    .ftVersion = CMPIVersion200,
    .release = release_object<PathObject, CMPIObjectPath>,
    .clone = clone_path,
    .setNameSpace = set_text<&ObjectPath::name_space>,
    .getNameSpace = get_text<&ObjectPath::name_space>,
    .setHostname = set_text<&ObjectPath::host>,
    .getHostname = get_text<&ObjectPath::host>,
    .setClassName = set_text<&ObjectPath::class_name>,
    .getClassName = get_text<&ObjectPath::class_name>,
    .addKey = add_key,
    .getKey = get_key,
    .getKeyAt = get_key_at,
    .getKeyCount = get_key_count,
    .setNameSpaceFromObjectPath = set_name_space_from,
    .setHostAndNameSpaceFromObjectPath = set_host_and_name_space_from,
    .getClassQualifier = no_qualifier<const char*>,
    .getPropertyQualifier = no_qualifier<const char*, const char*>,
    .getMethodQualifier = no_qualifier<const char*, const char*>,
    .getParameterQualifier = no_qualifier<const char*, const char*, const char*>,
    .toString = path_to_string,
};

std::string path_text(const ObjectPath& path) {
    std::string text = path.name_space + ":" + path.class_name;
    char separator = '.';
    for (const Named& key : path.keys) {
        text += separator + key.name + "=";
        if (const auto* const reference = std::get_if<std::shared_ptr<const ObjectPath>>(&key.value.data)) {
            text += "{" + path_text(**reference) + "}";
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
