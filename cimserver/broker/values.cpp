// Values between CMPI and the broker.
#include <cstring>
#include <utility>

#include "cimserver/broker/objects.h"

namespace cimserver {

namespace {

// Little endian: a narrower integer stands in the low bytes. What stands behind it may not be the provider's.
std::uint64_t low_bytes(const CMPIValue& value, CMPIType type) {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, &value, integer_bits(type) / 8);
    return bytes;
}

std::int64_t signed_of(const CMPIValue& value, CMPIType type) {
    const unsigned above = 64 - integer_bits(type);
    return static_cast<std::int64_t>(low_bytes(value, type) << above) >> above;
}

template <typename Data, typename Handle>
CimValue shared_copy(CMPIType type, const Handle* handle, Data Behind<Handle>::*data) {
    return handle == nullptr ? null_value(type) : CimValue{type, std::make_shared<const Data>(object(handle).*data)};
}

CimValue from_object(const CMPIValue& value, CMPIType type) {
    switch (type) {
        case CMPI_string:
            return value.string == nullptr ? null_value(type) : text_value(object(value.string).text);
        case CMPI_ref:
            return shared_copy(type, value.ref, &PathObject::path);
        case CMPI_instance:
            return shared_copy(type, value.inst, &InstanceObject::instance);
        default:
            throw EntryRefusal{CMPI_RC_ERR_INVALID_DATA_TYPE};
    }
}

// How each kind of data goes into a CMPI value.
struct ToCmpi {
    CMPIData& result;

    void operator()(std::monostate) { result.state = CMPI_nullValue; }
    void operator()(bool flag) { result.value.boolean = flag ? 1 : 0; }
    void operator()(std::uint64_t number) { result.value.uint64 = number; }
    void operator()(std::int64_t number) { result.value.sint64 = number; }
    void operator()(double number) {
        if (result.type == CMPI_real32) {
            result.value.real32 = static_cast<float>(number);
        } else {
            result.value.real64 = number;
        }
    }
    void operator()(const std::string& text) {
        result.type = CMPI_string;  // a date and time too: this broker has no objects for them
        result.value.string = new_string(text);
    }
    void operator()(const ValueList& list) {
        result.value.array = make_object<ArrayObject>(static_cast<CMPIType>(result.type & ~CMPI_ARRAY), list);
    }
    void operator()(const std::shared_ptr<const ObjectPath>& path) {
        result.value.ref = make_object<PathObject>(*path);
    }
    void operator()(const std::shared_ptr<const Instance>& instance) {
        result.value.inst = make_object<InstanceObject>(*instance, nullptr);
    }
};

}  // namespace

CimValue from_cmpi(const CMPIValue* value, CMPIType type) {
    if (type == CMPI_chars) {
        // The text itself stands where a value's address would.
        return value == nullptr ? null_value(CMPI_string) : text_value(reinterpret_cast<const char*>(value));
    }
    if (value == nullptr) {
        return null_value(type == CMPI_charsA ? CMPI_stringA : type);
    }
    if ((type & CMPI_ARRAY) != 0) {
        if (value->array == nullptr) {
            return null_value(type);
        }
        const ArrayObject& array = object(value->array);
        return {static_cast<CMPIType>(array.type | CMPI_ARRAY), array.elements};
    }
    if (type == CMPI_boolean) {
        return {type, value->boolean != 0};
    }
    if (is_unsigned(type)) {
        return {type, low_bytes(*value, type)};
    }
    if (is_signed(type)) {
        return {type, signed_of(*value, type)};
    }
    if (type == CMPI_real32 || type == CMPI_real64) {
        return {type, type == CMPI_real32 ? double{value->real32} : value->real64};
    }
    return from_object(*value, type);
}

CMPIData to_cmpi(const CimValue& value) {
    CMPIData data{value.type, CMPI_goodValue, {}};
    std::visit(ToCmpi{data}, value.data);
    return data;
}

CMPIString* new_string(std::string_view text) {
    return make_object<StringObject>(text);
}

PropertyList property_list(const char** names) {
    if (names == nullptr) {
        return std::nullopt;
    }
    PropertyList list(std::in_place);
    for (; *names != nullptr; ++names) {
        list->emplace_back(*names);
    }
    return list;
}

}  // namespace cimserver
