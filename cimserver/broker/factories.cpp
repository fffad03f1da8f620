// What a provider makes and asks through the broker: the table of the encapsulated types.
#include <syslog.h>

#include <utility>

#include "cimserver/broker/broker.h"
#include "cimserver/broker/objects.h"
#include "cimserver/broker/path_text.h"
#include "cimserver/broker/tables.h"

namespace cimserver {

namespace {

constexpr CMPICount LARGEST_ARRAY = 1U << 20;

// The instance has the path's keys as properties; a class that isn't defined is refused.
CMPIInstance* new_instance(const CMPIBroker* broker, const CMPIObjectPath* path) {
    const Schema& schema = broker_of(broker).schema();
    const ObjectPath& made = object(path).path;
    if (schema.find(made.class_name) == nullptr) {
        throw EntryRefusal{CMPI_RC_ERR_INVALID_CLASS};
    }
    return make_object<InstanceObject>(Instance{made, made.keys, {}}, &schema);
}

CMPIObjectPath* new_object_path(const CMPIBroker*, const char* name_space, const char* class_name) {
    const std::string_view space = name_space == nullptr ? std::string_view() : name_space;
    return make_object<PathObject>(ObjectPath{{}, std::string(space), std::string(needed(class_name)), {}});
}

CMPIArgs* new_args(const CMPIBroker*) {
    return make_object<ArgsObject>(NamedList());
}

CMPIString* make_string(const CMPIBroker*, const char* text) {
    return new_string(needed(text));
}

CMPIArray* new_array(const CMPIBroker*, CMPICount size, CMPIType type) {
    if (size > LARGEST_ARRAY || (type & CMPI_ARRAY) != 0) {
        throw EntryRefusal{CMPI_RC_ERR_INVALID_PARAMETER};
    }
    const CMPIType element = type == CMPI_chars ? CMPI_string : type;
    return make_object<ArrayObject>(element, ValueList(size, null_value(element)));
}

// --- messages: the default text, since there are no message files --------------------------------------------

void open_message_file(const CMPIBroker*, const char*, CMPIMsgFileHandle* file) {
    if (file != nullptr) {
        *file = nullptr;
    }
}

void close_message_file(const CMPIBroker*, CMPIMsgFileHandle) {}

CMPIString* get_message(const CMPIBroker* broker, const char*, const char* text, CMPIStatus* status, CMPICount, ...) {
    return entry<make_string>(broker, text, status);
}

CMPIString* get_message2(const CMPIBroker* broker, const char*, CMPIMsgFileHandle, const char* text, CMPIStatus* status,
                         CMPICount, ...) {
    return entry<make_string>(broker, text, status);
}

// --- asking -------------------------------------------------------------------------------------------------

CMPIBoolean class_path_is_a(const CMPIBroker* broker, const CMPIObjectPath* path, const char* class_name) {
    return broker_of(broker).schema().is_a(object(path).path.class_name, needed(class_name)) ? 1 : 0;
}

// Every handle begins with its data and its table, which tells what it is.
std::string_view kind_of(const void* any) {
    if (any == nullptr) {
        throw EntryRefusal{CMPI_RC_ERR_INVALID_HANDLE};
    }
    const void* const table = static_cast<const CMPIString*>(any)->ft;
    constexpr std::pair<const void*, std::string_view> kinds[] = {
        {&string_table, "CMPIString"},   {&array_table, "CMPIArray"},   {&enumeration_table, "CMPIEnumeration"},
        {&path_table, "CMPIObjectPath"}, {&args_table, "CMPIArgs"},     {&instance_table, "CMPIInstance"},
        {&context_table, "CMPIContext"}, {&result_table, "CMPIResult"},
    };
    for (const auto& [known, name] : kinds) {
        if (known == table) {
            return name;
        }
    }
    throw EntryRefusal{CMPI_RC_ERR_INVALID_HANDLE};
}

CMPIString* to_string(const CMPIBroker*, const void* any) {
    const std::string_view kind = kind_of(any);
    if (kind == "CMPIString") {
        return new_string(object(static_cast<const CMPIString*>(any)).text);
    }
    return new_string(kind == "CMPIObjectPath" ? path_text(object(static_cast<const CMPIObjectPath*>(any)).path)
                                               : kind);
}

CMPIBoolean is_of_type(const CMPIBroker*, const void* any, const char* type) {
    return kind_of(any) == needed(type) ? 1 : 0;
}

CMPIString* get_type(const CMPIBroker*, const void* any) {
    return new_string(kind_of(any));
}

void log_message(const CMPIBroker*, int severity, const char* id, const char* text, const CMPIString* string) {
    const std::string message = text != nullptr     ? std::string(text)
                                : string != nullptr ? object(string).text
                                                    : std::string();
    syslog(severity == CMPI_SEV_ERROR ? LOG_ERR : LOG_INFO, "%s: %s", id == nullptr ? "" : id, message.c_str());
}

void trace(const CMPIBroker*, int, const char*, const char*, const CMPIString*) {}

}  // namespace

const CMPIBrokerEncFT factory_table = {
    .ftVersion = CMPIVersion200,
    .newInstance = entry<new_instance>,
    .newObjectPath = entry<new_object_path>,
    .newArgs = entry<new_args>,
    .newString = entry<make_string>,
    .newArray = entry<new_array>,
    .newDateTime = not_supported,
    .newDateTimeFromBinary = not_supported,
    .newDateTimeFromChars = not_supported,
    .newSelectExp = not_supported,
    .classPathIsA = entry<class_path_is_a>,
    .toString = entry<to_string>,
    .isOfType = entry<is_of_type>,
    .getType = entry<get_type>,
    .getMessage = get_message,
    .logMessage = entry<log_message>,
    .trace = entry<trace>,
    .newCMPIError = not_supported,
    .openMessageFile = entry<open_message_file>,
    .closeMessageFile = entry<close_message_file>,
    .getMessage2 = get_message2,
};

}  // namespace cimserver
