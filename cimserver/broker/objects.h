// The broker's objects: CMPI handles with the plain data of model/value.h behind them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cimserver/broker/request.h"
#include "cimserver/model/value.h"
#include "cimserver/mof/schema.h"
#include "cmpi/cmpi.h"

namespace cimserver {

extern const CMPIStringFT string_table;
extern const CMPIArrayFT array_table;
extern const CMPIEnumerationFT enumeration_table;
extern const CMPIObjectPathFT path_table;
extern const CMPIInstanceFT instance_table;
extern const CMPIArgsFT args_table;
extern const CMPIResultFT result_table;
extern const CMPIContextFT context_table;

// A handle whose `hdl` is null stands for no object. Only a string's is read.
inline char any_hdl;

// The object behind a handle of that type.
template <typename Handle>
struct Behind;

// `hdl` is the text itself: code built with the standard's 2.0 macro reads it there.
template <>
struct Behind<CMPIString> final : BrokerObject, CMPIString {
    explicit Behind(std::string_view text_in) : CMPIString{nullptr, &string_table}, text(text_in) { hdl = text.data(); }
    Behind(const Behind& other) : Behind(other.text) {}
    std::string text;
};
using StringObject = Behind<CMPIString>;

template <>
struct Behind<CMPIArray> final : BrokerObject, CMPIArray {
    Behind(CMPIType element_type, ValueList list)
        : CMPIArray{&any_hdl, &array_table}, type(element_type), elements(std::move(list)) {}
    CMPIType type;
    ValueList elements;
};
using ArrayObject = Behind<CMPIArray>;

template <>
struct Behind<CMPIEnumeration> final : BrokerObject, CMPIEnumeration {
    explicit Behind(ValueList list) : CMPIEnumeration{&any_hdl, &enumeration_table}, elements(std::move(list)) {}
    ValueList elements;
    std::size_t next = 0;
};
using EnumerationObject = Behind<CMPIEnumeration>;

template <>
struct Behind<CMPIObjectPath> final : BrokerObject, CMPIObjectPath {
    explicit Behind(ObjectPath path_in) : CMPIObjectPath{&any_hdl, &path_table}, path(std::move(path_in)) {}
    ObjectPath path;
};
using PathObject = Behind<CMPIObjectPath>;

template <>
struct Behind<CMPIInstance> final : BrokerObject, CMPIInstance {
    Behind(Instance instance_in, const Schema* schema_in)
        : CMPIInstance{&any_hdl, &instance_table}, instance(std::move(instance_in)), schema(schema_in) {}
    Instance instance;
    const Schema* schema;  // what its properties are held to; null: to nothing
};
using InstanceObject = Behind<CMPIInstance>;

template <>
struct Behind<CMPIArgs> final : BrokerObject, CMPIArgs {
    explicit Behind(NamedList args_in) : CMPIArgs{&any_hdl, &args_table}, args(std::move(args_in)) {}
    NamedList args;
};
using ArgsObject = Behind<CMPIArgs>;

template <>
struct Behind<CMPIResult> final : BrokerObject, CMPIResult {
    Behind() : CMPIResult{&any_hdl, &result_table} {}
    ValueList values;
};
using ResultObject = Behind<CMPIResult>;

template <>
struct Behind<CMPIContext> final : BrokerObject, CMPIContext {
    explicit Behind(NamedList entries_in) : CMPIContext{&any_hdl, &context_table}, entries(std::move(entries_in)) {}
    NamedList entries;
};
using ContextObject = Behind<CMPIContext>;

// The object behind a handle. A null handle is refused.
template <typename Handle>
Behind<Handle>& object(const Handle* handle) {
    if (handle == nullptr) {
        throw EntryRefusal{CMPI_RC_ERR_INVALID_HANDLE};
    }
    return static_cast<Behind<Handle>&>(const_cast<Handle&>(*handle));
}

// A text argument that must be there.
inline std::string_view needed(const char* text) {
    if (text == nullptr) {
        throw EntryRefusal{CMPI_RC_ERR_INVALID_PARAMETER};
    }
    return text;
}

// --- values -----------------------------------------------------------------------------------------------

// The value that a provider passed. A type that no value has is refused.
CimValue from_cmpi(const CMPIValue* value, CMPIType type);

// The value for a provider; objects in it belong to the request.
CMPIData to_cmpi(const CimValue& value);

CMPIString* new_string(std::string_view text);

// Names ended by a null pointer; null itself for all.
PropertyList property_list(const char** names);

// --- entries that are alike for all handles ----------------------------------------------------------------

// Only a clone is freed: the request frees what is its own.
template <typename Handle>
void release(Handle* handle) {
    if (Behind<Handle>* const made = &object(handle); made->is_clone) {
        delete made;
    }
}

template <typename Handle>
Handle* clone(const Handle* handle) {
    auto* const made = new Behind<Handle>(object(handle));
    made->is_clone = true;
    return made;
}

// The values by name in an object.
inline NamedList& list_of(const CMPIArgs* args) {
    return object(args).args;
}
inline NamedList& list_of(const CMPIContext* context) {
    return object(context).entries;
}
inline NamedList& list_of(const CMPIObjectPath* path) {
    return object(path).path.keys;
}
inline NamedList& list_of(const CMPIInstance* instance) {
    return object(instance).instance.properties;
}

template <typename Handle>
CMPICount count(const Handle* handle) {
    return static_cast<CMPICount>(list_of(handle).size());
}

// Refuses a value that isn't there. A path's values are keys.
template <typename Handle>
CMPIData data_of(const CimValue* value) {
    if (value == nullptr) {
        throw EntryRefusal{CMPI_RC_ERR_NO_SUCH_PROPERTY};
    }
    CMPIData data = to_cmpi(*value);
    data.state |= std::is_same_v<Handle, CMPIObjectPath> ? CMPI_keyValue : CMPI_goodValue;
    return data;
}

template <typename Handle>
CMPIData get(const Handle* handle, const char* name) {
    return data_of<Handle>(find(list_of(handle), needed(name)));
}

template <typename Handle>
CMPIData get_at(const Handle* handle, CMPICount index, CMPIString** name) {
    const NamedList& list = list_of(handle);
    const Named* const named = index < list.size() ? &list[index] : nullptr;
    if (named != nullptr && name != nullptr) {
        *name = new_string(named->name);
    }
    return data_of<Handle>(named == nullptr ? nullptr : &named->value);
}

template <typename Handle>
void add(const Handle* handle, const char* name, const CMPIValue* value, CMPIType type) {
    set(list_of(handle), needed(name), from_cmpi(value, type));
}

}  // namespace cimserver
