// Values between CMPI and the broker.
#include <utility>

#include "cimserver/broker/objects.h"

namespace cimserver {

namespace {

template <typename Made, typename Handle, typename Data>
Value shared_copy(CMPIType type, const Handle* handle, Data Made::*data) {
    if (handle == nullptr) {
        return null_value(type);
    }
    return {type, std::make_shared<const Data>(object<Made>(handle).*data)};
}

std::uint64_t unsigned_of(const CMPIValue& value, CMPIType type) {
    switch (type) {
        case CMPI_uint8:
            return value.uint8;
        case CMPI_uint16:
        case CMPI_char16:
            return value.uint16;
        case CMPI_uint32:
            return value.uint32;
        default:
            return value.uint64;
    }
}

std::int64_t signed_of(const CMPIValue& value, CMPIType type) {
    switch (type) {
        case CMPI_sint8:
            return value.sint8;
        case CMPI_sint16:
            return value.sint16;
        case CMPI_sint32:
            return value.sint32;
        default:
            return value.sint64;
    }
}

Value from_object(const CMPIValue& value, CMPIType type) {
    switch (type) {
        case CMPI_string:
            return value.string == nullptr ? null_value(type) : text_value(object<StringObject>(value.string).text);
        case CMPI_ref:
            return shared_copy(type, value.ref, &PathObject::path);
        case CMPI_instance:
            return shared_copy(type, value.inst, &InstanceObject::instance);
        default:
            throw Refusal{CMPI_RC_ERR_INVALID_DATA_TYPE};
    }
}

CMPIValue number_for(const Value& value) {
    CMPIValue result{};
    const CMPIType type = value.type;
    if (const auto* const flag = std::get_if<bool>(&value.data)) {
        result.boolean = *flag ? 1 : 0;
    } else if (const auto* const number = std::get_if<double>(&value.data)) {
        if (type == CMPI_real32) {
            result.real32 = static_cast<float>(*number);
        } else {
            result.real64 = *number;
        }
    } else if (const auto* const natural = std::get_if<std::uint64_t>(&value.data)) {
        result.uint64 = *natural;  // little endian: a narrower member reads its low bytes
    } else if (const auto* const integer = std::get_if<std::int64_t>(&value.data)) {
        result.sint64 = *integer;
    }
    return result;
}

}  // namespace

Value from_cmpi(const CMPIValue* value, CMPIType type) {
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
        const ArrayObject& array = object<ArrayObject>(value->array);
        return {static_cast<CMPIType>(array.type | CMPI_ARRAY), array.elements};
    }
    if (type == CMPI_boolean) {
        return {type, value->boolean != 0};
    }
    if (is_unsigned(type)) {
        return {type, unsigned_of(*value, type)};
    }
    if (is_signed(type)) {
        return {type, signed_of(*value, type)};
    }
    if (type == CMPI_real32 || type == CMPI_real64) {
        return {type, type == CMPI_real32 ? double{value->real32} : value->real64};
    }
    return from_object(*value, type);
}

CMPIData to_cmpi(const Value& value, const Schema* schema) {
    CMPIData data{value.type, CMPI_goodValue, {}};
    if (value.is_null()) {
        data.state = CMPI_nullValue;
    } else if (const auto* const text = std::get_if<std::string>(&value.data)) {
        data.type = CMPI_string;  // a date and time too: this broker has no objects for them
        data.value.string = new_string(*text);
    } else if (const auto* const list = std::get_if<ValueList>(&value.data)) {
        data.value.array = make_object<ArrayObject>(static_cast<CMPIType>(value.type & ~CMPI_ARRAY), *list);
    } else if (const auto* const path = std::get_if<std::shared_ptr<const ObjectPath>>(&value.data)) {
        data.value.ref = make_object<PathObject>(**path);
    } else if (const auto* const instance = std::get_if<std::shared_ptr<const Instance>>(&value.data)) {
        data.value.inst = make_object<InstanceObject>(**instance, schema);
    } else {
        data.value = number_for(value);
    }
    return data;
}

StringObject* new_string(std::string_view text) {
    return make_object<StringObject>(text);
}

CMPIData get_named(const NamedList& list, const char* name, const Schema* schema) {
    const Value* const value = find(list, needed(name));
    if (value == nullptr) {
        throw Refusal{CMPI_RC_ERR_NO_SUCH_PROPERTY};
    }
    return to_cmpi(*value, schema);
}

CMPIData get_named_at(const NamedList& list, CMPICount index, CMPIString** name, const Schema* schema) {
    if (index >= list.size()) {
        throw Refusal{CMPI_RC_ERR_NO_SUCH_PROPERTY};
    }
    const CMPIData data = to_cmpi(list[index].value, schema);
    if (name != nullptr) {
        *name = new_string(list[index].name);
    }
    return data;
}

}  // namespace cimserver
