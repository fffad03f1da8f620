// Strings, arrays, enumerations, results, contexts and arguments.
#include <utility>

#include "cimserver/broker/objects.h"

namespace cimserver {

namespace {

const char* get_char_ptr(const CMPIString* string) {
    return object(string).text.c_str();
}

// --- arrays -----------------------------------------------------------------------------------------------

CMPICount get_size(const CMPIArray* array) {
    return static_cast<CMPICount>(object(array).elements.size());
}

CMPIType get_simple_type(const CMPIArray* array) {
    return object(array).type;
}

CimValue& element_at(const CMPIArray* array, CMPICount index) {
    if (index >= get_size(array)) {
        throw EntryRefusal{CMPI_RC_ERR_NO_SUCH_PROPERTY};
    }
    return object(array).elements[index];
}

CMPIData get_element_at(const CMPIArray* array, CMPICount index) {
    return to_cmpi(element_at(array, index));
}

void set_element_at(CMPIArray* array, CMPICount index, const CMPIValue* value, CMPIType type) {
    CimValue& element = element_at(array, index);
    CimValue given = from_cmpi(value, type);
    if (!given.is_null() && given.type != object(array).type) {
        throw EntryRefusal{CMPI_RC_ERR_TYPE_MISMATCH};
    }
    element = std::move(given);
}

// --- enumerations -----------------------------------------------------------------------------------------

CMPIBoolean has_next(const CMPIEnumeration* enumeration) {
    return object(enumeration).next < object(enumeration).elements.size() ? 1 : 0;
}

CMPIData get_next(const CMPIEnumeration* enumeration) {
    if (has_next(enumeration) == 0) {
        throw EntryRefusal{CMPI_RC_ERR_NOT_FOUND};
    }
    auto& made = object(enumeration);
    return to_cmpi(made.elements[made.next++]);
}

CMPIArray* to_array(const CMPIEnumeration* enumeration) {
    const ValueList& elements = object(enumeration).elements;
    return make_object<ArrayObject>(elements.empty() ? CMPI_null : elements[0].type, elements);
}

// --- results ----------------------------------------------------------------------------------------------

void return_data(const CMPIResult* result, const CMPIValue* value, CMPIType type) {
    object(result).values.push_back(from_cmpi(value, type));
}

void return_instance(const CMPIResult* result, const CMPIInstance* instance) {
    object(result).values.push_back(instance_value(object(instance).instance));
}

void return_path(const CMPIResult* result, const CMPIObjectPath* path) {
    object(result).values.push_back(path_value(object(path).path));
}

void return_done(const CMPIResult* result) {
    (void)object(result);
}

}  // namespace

const CMPIStringFT string_table = {
    .ftVersion = CMPIVersion200,
    .release = entry<release<CMPIString>>,
    .clone = entry<clone<CMPIString>>,
    .getCharPtr = entry<get_char_ptr>,
};

const CMPIArrayFT array_table = {
    .ftVersion = CMPIVersion200,
    .release = entry<release<CMPIArray>>,
    .clone = entry<clone<CMPIArray>>,
    .getSize = entry<get_size>,
    .getSimpleType = entry<get_simple_type>,
    .getElementAt = entry<get_element_at>,
    .setElementAt = entry<set_element_at>,
};

const CMPIEnumerationFT enumeration_table = {
    .ftVersion = CMPIVersion200,
    .release = entry<release<CMPIEnumeration>>,
    .clone = entry<clone<CMPIEnumeration>>,
    .getNext = entry<get_next>,
    .hasNext = entry<has_next>,
    .toArray = entry<to_array>,
};

const CMPIResultFT result_table = {
    .ftVersion = CMPIVersion200,
    .release = entry<release<CMPIResult>>,
    .clone = not_supported,
    .returnData = entry<return_data>,
    .returnInstance = entry<return_instance>,
    .returnObjectPath = entry<return_path>,
    .returnDone = entry<return_done>,
    .returnError = not_supported,
};

const CMPIContextFT context_table = {
    .ftVersion = CMPIVersion200,
    .release = entry<release<CMPIContext>>,
    .clone = entry<clone<CMPIContext>>,
    .getEntry = entry<get<CMPIContext>>,
    .getEntryAt = entry<get_at<CMPIContext>>,
    .getEntryCount = entry<count<CMPIContext>>,
    .addEntry = entry<add<CMPIContext>>,
};

const CMPIArgsFT args_table = {
    .ftVersion = CMPIVersion200,
    .release = entry<release<CMPIArgs>>,
    .clone = entry<clone<CMPIArgs>>,
    .addArg = entry<add<CMPIArgs>>,
    .getArg = entry<get<CMPIArgs>>,
    .getArgAt = entry<get_at<CMPIArgs>>,
    .getArgCount = entry<count<CMPIArgs>>,
};

}  // namespace cimserver
