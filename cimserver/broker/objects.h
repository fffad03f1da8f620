// The broker's objects: CMPI handles with the plain data of model/value.h behind them.
#pragma once

#include <atomic>
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

// `hdl` is the text itself: code built with the standard's 2.0 macro reads it there.
struct StringObject final : Object, CMPIString {
    explicit StringObject(std::string_view text_in) : CMPIString{nullptr, &string_table}, text(text_in) {
        hdl = text.data();
    }
    std::string text;
};

struct ArrayObject final : Object, CMPIArray {
    ArrayObject(CMPIType element_type, ValueList list)
        : CMPIArray{this, &array_table}, type(element_type), elements(std::move(list)) {}
    CMPIType type;
    ValueList elements;
};

struct EnumerationObject final : Object, CMPIEnumeration {
    explicit EnumerationObject(ValueList list) : CMPIEnumeration{this, &enumeration_table}, elements(std::move(list)) {}
    ValueList elements;
    std::size_t next = 0;
};

struct PathObject final : Object, CMPIObjectPath {
    explicit PathObject(ObjectPath path_in) : CMPIObjectPath{this, &path_table}, path(std::move(path_in)) {}
    ObjectPath path;
};

struct InstanceObject final : Object, CMPIInstance {
    InstanceObject(Instance instance_in, const Schema* schema_in)
        : CMPIInstance{this, &instance_table}, instance(std::move(instance_in)), schema(schema_in) {}
    Instance instance;
    const Schema* schema;  // what its properties are held to
};

struct ArgsObject final : Object, CMPIArgs {
    explicit ArgsObject(NamedList args_in) : CMPIArgs{this, &args_table}, args(std::move(args_in)) {}
    NamedList args;
};

struct ResultObject final : Object, CMPIResult {
    ResultObject() : CMPIResult{this, &result_table} {}
    ValueList values;
    bool done = false;
};

struct ContextObject final : Object, CMPIContext {
    explicit ContextObject(NamedList entries_in) : CMPIContext{this, &context_table}, entries(std::move(entries_in)) {}
    NamedList entries;
};

// The object behind a handle. A null handle is refused.
template <typename Made, typename Handle>
Made& object(const Handle* handle) {
    if (handle == nullptr) {
        throw Refusal{CMPI_RC_ERR_INVALID_HANDLE};
    }
    return static_cast<Made&>(const_cast<Handle&>(*handle));
}

// A text argument that must be there.
inline std::string_view needed(const char* text) {
    if (text == nullptr) {
        throw Refusal{CMPI_RC_ERR_INVALID_PARAMETER};
    }
    return text;
}

// --- values -----------------------------------------------------------------------------------------------

// What a table answers beside a status that isn't OK.
inline constexpr CMPIData NO_DATA{CMPI_null, CMPI_notFound, {}};

// The value that a provider passed. A type that no value has is refused.
Value from_cmpi(const CMPIValue* value, CMPIType type);

// The value for a provider; objects in it belong to the request.
CMPIData to_cmpi(const Value& value, const Schema* schema = nullptr);

StringObject* new_string(std::string_view text);

// The named value, or the one at an index, with its name where that is asked for. Refuses when there is none.
CMPIData get_named(const NamedList& list, const char* name, const Schema* schema = nullptr);
CMPIData get_named_at(const NamedList& list, CMPICount index, CMPIString** name, const Schema* schema = nullptr);

// --- release and clone, alike for all ----------------------------------------------------------------------

// Only a clone is freed: the request frees what is its own.
template <typename Made, typename Handle>
CMPIStatus release_object(Handle* handle) noexcept {
    return guarded_status([&] {
        Made* const made = &object<Made>(handle);
        if (made->is_clone) {
            delete made;
        }
    });
}

template <typename Made, typename Handle, typename... Arguments>
Handle* own_clone(Arguments&&... arguments) {
    auto* const made = new Made(std::forward<Arguments>(arguments)...);
    made->is_clone = true;
    return made;
}

}  // namespace cimserver
