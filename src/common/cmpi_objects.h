// What every provider does with the broker's objects: build paths and instances, read texts, return results.
// A null from the broker is carried through here: the functions take null objects, do nothing with them and
// give null back, and the return functions then tell that nothing was returned.
#pragma once

#include <cstdint>

#include "cmpi/cmpi.h"

namespace oxr {

inline constexpr char CIM_NAMESPACE[] = "ostrel/cimv2";

// The value is there; its type is not looked at.
inline bool has_value(const CMPIData& data) {
    return (data.state & (CMPI_nullValue | CMPI_notFound | CMPI_badValue)) == 0;
}

// The text of a string value, or null when it is of another type or has no value. Lives as long as the value.
inline const char* text_of(const CMPIData& data) {
    if (data.type != CMPI_string || !has_value(data) || data.value.string == nullptr) {
        return nullptr;
    }
    return CMGetCharPtr(data.value.string);
}

// The path is of the class or of one derived from it. False too when the broker can't tell.
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
        (void)CMAddKey(path, name, text, CMPI_chars);  // a path without the key names nothing: the broker tells
    }
}

inline void add_reference_key(CMPIObjectPath* path, const char* name, const CMPIObjectPath* reference) {
    if (path != nullptr && reference != nullptr) {
        (void)CMAddKey(path, name, &reference, CMPI_ref);
    }
}

// A key's value; without one when the path or the key is absent.
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

// A reference key's path, or null when it is absent or of another type.
inline CMPIObjectPath* get_reference_key(const CMPIObjectPath* path, const char* name) {
    const CMPIData key = get_key(path, name);
    return key.type == CMPI_ref && has_value(key) ? key.value.ref : nullptr;
}

// --- instances --------------------------------------------------------------------------------------------

// An instance on the path that carries the listed properties; `keys` are always kept. Both lists end with a
// null pointer; a null `properties`: all of them.
inline CMPIInstance* new_instance(const CMPIBroker* broker, const CMPIObjectPath* path, const char** properties,
                                  const char** keys) {
    if (broker == nullptr || path == nullptr) {
        return nullptr;
    }
    CMPIInstance* const instance = CMNewInstance(broker, path, nullptr);
    if (instance != nullptr) {
        (void)CMSetPropertyFilter(instance, properties, keys);  // unfiltered is more than was asked for, not less
    }
    return instance;
}

// A property outside the filter is refused by the broker, so the result says nothing.
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

// False when there was nothing to return or nowhere to return it to.
inline bool return_path(const CMPIResult* result, const CMPIObjectPath* path) {
    return result != nullptr && path != nullptr && CMReturnObjectPath(result, path).rc == CMPI_RC_OK;
}

inline bool return_instance(const CMPIResult* result, const CMPIInstance* instance) {
    return result != nullptr && instance != nullptr && CMReturnInstance(result, instance).rc == CMPI_RC_OK;
}

// Ends an answer, with OK in any case.
inline CMPIStatus end_results(const CMPIResult* result) {
    if (result != nullptr) {
        (void)CMReturnDone(result);
    }
    return CMReturn(CMPI_RC_OK);
}

// Ends an answer: OK, or FAILED when one of its objects could not be made or returned.
inline CMPIStatus end_results(const CMPIResult* result, bool all_returned) {
    return result != nullptr && all_returned ? end_results(result) : CMReturn(CMPI_RC_ERR_FAILED);
}

}  // namespace oxr
