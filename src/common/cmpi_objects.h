// Helpers for the broker's objects: build paths and instances, read texts, return results. If the broker returns
// null, the null is passed on: the functions accept null objects, do nothing with them and return null, and the
// return functions then report that nothing was returned.
#pragma once

#include <cstdint>

#include "cmpi/cmpi.h"

namespace oxr {

inline constexpr char CIM_NAMESPACE[] = "ostrel/cimv2";

// Whether the value is present. Its type is not checked.
inline bool has_value(const CMPIData& data) {
    return (data.state & (CMPI_nullValue | CMPI_notFound | CMPI_badValue)) == 0;
}

// The text of a string value, or null if it has another type or no value. Valid as long as the value.
inline const char* text_of(const CMPIData& data) {
    if (data.type != CMPI_string || !has_value(data) || data.value.string == nullptr) {
        return nullptr;
    }
    return CMGetCharPtr(data.value.string);
}

// Whether the path's class is this class or derived from it. Also false if the broker cannot tell.
inline bool is_a(const CMPIBroker* broker, const CMPIObjectPath* path, const char* class_name) {
    if (broker == nullptr || path == nullptr) {
        return false;
    }
    CMPIStatus status{CMPI_RC_OK, nullptr};
    const bool answer = CMClassPathIsA(broker, path, class_name, &status) != 0;
    return answer && status.rc == CMPI_RC_OK;
}

// --- paths ------------------------------------------------------------------------------------------------

// A path of the class in ostrel/cimv2, without keys.
inline CMPIObjectPath* new_path(const CMPIBroker* broker, const char* class_name) {
    return broker == nullptr ? nullptr : CMNewObjectPath(broker, CIM_NAMESPACE, class_name, nullptr);
}

inline void add_text_key(CMPIObjectPath* path, const char* name, const char* text) {
    if (path != nullptr) {
        (void)CMAddKey(path, name, text, CMPI_chars);  // the broker reports a path without its key
    }
}

inline void add_reference_key(CMPIObjectPath* path, const char* name, const CMPIObjectPath* reference) {
    if (path != nullptr && reference != nullptr) {
        (void)CMAddKey(path, name, &reference, CMPI_ref);
    }
}

// A key's value; it has no value if the path or the key is absent.
inline CMPIData get_key(const CMPIObjectPath* path, const char* name) {
    CMPIData key{CMPI_null, CMPI_notFound, {}};
    if (path != nullptr) {
        CMPIStatus status{CMPI_RC_OK, nullptr};
        key = CMGetKey(path, name, &status);
        if (status.rc != CMPI_RC_OK) {
            key.state |= CMPI_notFound;
        }
    }
    return key;
}

// A reference key's path, or null if it is absent or has another type.
inline CMPIObjectPath* get_reference_key(const CMPIObjectPath* path, const char* name) {
    const CMPIData key = get_key(path, name);
    return key.type == CMPI_ref && has_value(key) ? key.value.ref : nullptr;
}

// --- instances --------------------------------------------------------------------------------------------

// An instance on the path with the listed properties; `keys` are always kept. Both lists end with a null pointer.
// If `properties` is null: all properties.
inline CMPIInstance* new_instance(const CMPIBroker* broker, const CMPIObjectPath* path, const char** properties,
                                  const char** keys) {
    if (broker == nullptr || path == nullptr) {
        return nullptr;
    }
    CMPIInstance* const instance = CMNewInstance(broker, path, nullptr);
    if (instance != nullptr) {
        (void)CMSetPropertyFilter(instance, properties, keys);  // if it fails, the client gets all properties
    }
    return instance;
}

// The result is ignored: the broker refuses a property that the filter excludes.
inline void set_text(const CMPIInstance* instance, const char* name, const char* text) {
    if (instance != nullptr) {
        (void)CMSetProperty(instance, name, text, CMPI_chars);
    }
}

inline void set_uint32(const CMPIInstance* instance, const char* name, std::uint32_t value) {
    if (instance != nullptr) {
        (void)CMSetProperty(instance, name, &value, CMPI_uint32);
    }
}

inline void set_reference(const CMPIInstance* instance, const char* name, const CMPIObjectPath* reference) {
    if (instance != nullptr && reference != nullptr) {
        (void)CMSetProperty(instance, name, &reference, CMPI_ref);
    }
}

// --- results ----------------------------------------------------------------------------------------------

// False if the object or the result is null, or if the broker refuses it.
inline bool return_path(const CMPIResult* result, const CMPIObjectPath* path) {
    return result != nullptr && path != nullptr && CMReturnObjectPath(result, path).rc == CMPI_RC_OK;
}

inline bool return_instance(const CMPIResult* result, const CMPIInstance* instance) {
    return result != nullptr && instance != nullptr && CMReturnInstance(result, instance).rc == CMPI_RC_OK;
}

// Completes the results with OK.
inline CMPIStatus end_results(const CMPIResult* result) {
    if (result != nullptr) {
        (void)CMReturnDone(result);
    }
    return CMReturn(CMPI_RC_OK);
}

// Completes the results: OK, or FAILED if an object could not be created or returned.
inline CMPIStatus end_results(const CMPIResult* result, bool all_returned) {
    return result != nullptr && all_returned ? end_results(result) : CMReturn(CMPI_RC_ERR_FAILED);
}

}  // namespace oxr
