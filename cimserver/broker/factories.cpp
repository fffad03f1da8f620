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
CMPIInstance* new_instance(const CMPIBroker* broker, const CMPIObjectPath* path, CMPIStatus* status) {
    return guarded<CMPIInstance*>(status, nullptr, [&] {
        const Schema& schema = broker_of(broker).schema();
        const ObjectPath& made = object<PathObject>(path).path;
        if (schema.find(made.class_name) == nullptr) {
            throw Refusal{CMPI_RC_ERR_INVALID_CLASS};
        }
        return make_object<InstanceObject>(Instance{made, made.keys, {}}, &schema);
    });
}

CMPIObjectPath* new_object_path(const CMPIBroker*, const char* name_space, const char* class_name, CMPIStatus* status) {
    return guarded<CMPIObjectPath*>(status, nullptr, [&] {
        const std::string_view space = name_space == nullptr ? std::string_view() : name_space;
        return make_object<PathObject>(ObjectPath{{}, std::string(space), std::string(needed(class_name)), {}});
    });
}

CMPIArgs* new_args(const CMPIBroker*, CMPIStatus* status) {
    return guarded<CMPIArgs*>(status, nullptr, [] { return make_object<ArgsObject>(NamedList()); });
}

CMPIString* make_string(const CMPIBroker*, const char* text, CMPIStatus* status) {
    return guarded<CMPIString*>(status, nullptr, [&] { return new_string(needed(text)); });
}

CMPIArray* new_array(const CMPIBroker*, CMPICount size, CMPIType type, CMPIStatus* status) {
    return guarded<CMPIArray*>(status, nullptr, [&] {
        if (size > LARGEST_ARRAY || (type & CMPI_ARRAY) != 0) {
            throw Refusal{CMPI_RC_ERR_INVALID_PARAMETER};
        }
        const CMPIType element = type == CMPI_chars ? CMPI_string : type;
        return make_object<ArrayObject>(element, ValueList(size, null_value(element)));
    });
}

// --- not needed by any class here ---------------------------------------------------------------------------

template <typename Made, typename... Arguments>
Made* not_supported(const CMPIBroker*, Arguments..., CMPIStatus* status) {
    put(status, CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIStatus open_message_file(const CMPIBroker*, const char*, CMPIMsgFileHandle* file) {
    if (file != nullptr) {
        *file = nullptr;
    }
    return {CMPI_RC_OK, nullptr};
}

CMPIStatus close_message_file(const CMPIBroker*, CMPIMsgFileHandle) {
    return {CMPI_RC_OK, nullptr};
}

// The default text: there are no message files.
CMPIString* get_message(const CMPIBroker* broker, const char*, const char* text, CMPIStatus* status, CMPICount, ...) {
    return make_string(broker, text, status);
}

CMPIString* get_message2(const CMPIBroker* broker, const char*, CMPIMsgFileHandle, const char* text, CMPIStatus* status,
                         CMPICount, ...) {
    return make_string(broker, text, status);
}

// --- asking -------------------------------------------------------------------------------------------------

CMPIBoolean class_path_is_a(const CMPIBroker* broker, const CMPIObjectPath* path, const char* class_name,
                            CMPIStatus* status) {
    return guarded<CMPIBoolean>(status, 0, [&]() -> CMPIBoolean {
        const std::string& own = object<PathObject>(path).path.class_name;
        return broker_of(broker).schema().is_a(own, needed(class_name)) ? 1 : 0;
    });
}

// Every handle begins with its data and its table, which tells what it is.
const void* table_of(const void* any) {
    if (any == nullptr) {
        throw Refusal{CMPI_RC_ERR_INVALID_HANDLE};
    }
    return static_cast<const CMPIString*>(any)->ft;
}

std::string_view kind_of(const void* any) {
    const void* const table = table_of(any);
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
    throw Refusal{CMPI_RC_ERR_INVALID_HANDLE};
}

CMPIString* to_string(const CMPIBroker*, const void* any, CMPIStatus* status) {
    return guarded<CMPIString*>(status, nullptr, [&] {
        if (table_of(any) == &string_table) {
            return new_string(object<StringObject>(static_cast<const CMPIString*>(any)).text);
        }
        if (table_of(any) == &path_table) {
            return new_string(path_text(object<PathObject>(static_cast<const CMPIObjectPath*>(any)).path));
        }
        return new_string(kind_of(any));
    });
}

CMPIBoolean is_of_type(const CMPIBroker*, const void* any, const char* type, CMPIStatus* status) {
    return guarded<CMPIBoolean>(status, 0, [&]() -> CMPIBoolean { return kind_of(any) == needed(type) ? 1 : 0; });
}

CMPIString* get_type(const CMPIBroker*, const void* any, CMPIStatus* status) {
    return guarded<CMPIString*>(status, nullptr, [&] { return new_string(kind_of(any)); });
}

CMPIStatus log_message(const CMPIBroker*, int severity, const char* id, const char* text, const CMPIString* string) {
    return guarded_status([&] {
        const std::string message = text != nullptr     ? std::string(text)
                                    : string != nullptr ? object<StringObject>(string).text
                                                        : std::string();
        syslog(severity == CMPI_SEV_ERROR ? LOG_ERR : LOG_INFO, "%s: %s", id == nullptr ? "" : id, message.c_str());
    });
}

CMPIStatus trace(const CMPIBroker*, int, const char*, const char*, const CMPIString*) {
    return {CMPI_RC_OK, nullptr};
}

}  // namespace

const CMPIBrokerEncFT factory_table = {
    .ftVersion = CMPIVersion200,
    .newInstance = new_instance,
    .newObjectPath = new_object_path,
    .newArgs = new_args,
    .newString = make_string,
    .newArray = new_array,
    .newDateTime = not_supported<CMPIDateTime>,
    .newDateTimeFromBinary = not_supported<CMPIDateTime, CMPIUint64, CMPIBoolean>,
    .newDateTimeFromChars = not_supported<CMPIDateTime, const char*>,
    .newSelectExp = not_supported<CMPISelectExp, const char*, const char*, CMPIArray**>,
    .classPathIsA = class_path_is_a,
    .toString = to_string,
    .isOfType = is_of_type,
    .getType = get_type,
    .getMessage = get_message,
    .logMessage = log_message,
    .trace = trace,
    .newCMPIError = not_supported<CMPIError, const char*, const char*, const char*, CMPIErrorSeverity,
                                  CMPIErrorProbableCause, CMPIrc>,
    .openMessageFile = open_message_file,
    .closeMessageFile = close_message_file,
    .getMessage2 = get_message2,
};

}  // namespace cimserver
