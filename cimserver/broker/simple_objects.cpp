// Strings, arrays, enumerations, results, contexts and arguments.
#include <utility>

#include "cimserver/broker/objects.h"

namespace cimserver {

namespace {

// --- strings ----------------------------------------------------------------------------------------------

CMPIString* clone_string(const CMPIString* string, CMPIStatus* status) {
    return guarded<CMPIString*>(status, nullptr,
                                [&] { return own_clone<StringObject, CMPIString>(object<StringObject>(string).text); });
}

const char* get_char_ptr(const CMPIString* string, CMPIStatus* status) {
    return guarded<const char*>(status, nullptr, [&] { return object<StringObject>(string).text.c_str(); });
}

// --- arrays -----------------------------------------------------------------------------------------------

CMPIArray* clone_array(const CMPIArray* array, CMPIStatus* status) {
    return guarded<CMPIArray*>(status, nullptr, [&] {
        const auto& made = object<ArrayObject>(array);
        return own_clone<ArrayObject, CMPIArray>(made.type, made.elements);
    });
}

CMPICount get_size(const CMPIArray* array, CMPIStatus* status) {
    return guarded<CMPICount>(status, 0,
                              [&] { return static_cast<CMPICount>(object<ArrayObject>(array).elements.size()); });
}

CMPIType get_simple_type(const CMPIArray* array, CMPIStatus* status) {
    return guarded<CMPIType>(status, CMPI_null, [&] { return object<ArrayObject>(array).type; });
}

CMPIData get_element_at(const CMPIArray* array, CMPICount index, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] {
        const auto& made = object<ArrayObject>(array);
        if (index >= made.elements.size()) {
            throw Refusal{CMPI_RC_ERR_NO_SUCH_PROPERTY};
        }
        return to_cmpi(made.elements[index]);
    });
}

CMPIStatus set_element_at(CMPIArray* array, CMPICount index, const CMPIValue* value, CMPIType type) {
    return guarded_status([&] {
        auto& made = object<ArrayObject>(array);
        if (index >= made.elements.size()) {
            throw Refusal{CMPI_RC_ERR_NO_SUCH_PROPERTY};
        }
        Value element = from_cmpi(value, type);
        if (!element.is_null() && element.type != made.type) {
            throw Refusal{CMPI_RC_ERR_TYPE_MISMATCH};
        }
        made.elements[index] = std::move(element);
    });
}

// --- enumerations -----------------------------------------------------------------------------------------

CMPIEnumeration* clone_enumeration(const CMPIEnumeration* enumeration, CMPIStatus* status) {
    return guarded<CMPIEnumeration*>(status, nullptr, [&] {
        return own_clone<EnumerationObject, CMPIEnumeration>(object<EnumerationObject>(enumeration).elements);
    });
}

CMPIData get_next(const CMPIEnumeration* enumeration, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] {
        auto& made = object<EnumerationObject>(enumeration);
        if (made.next >= made.elements.size()) {
            throw Refusal{CMPI_RC_ERR_NOT_FOUND};
        }
        return to_cmpi(made.elements[made.next++]);
    });
}

CMPIBoolean has_next(const CMPIEnumeration* enumeration, CMPIStatus* status) {
    return guarded<CMPIBoolean>(status, 0, [&]() -> CMPIBoolean {
        const auto& made = object<EnumerationObject>(enumeration);
        return made.next < made.elements.size() ? 1 : 0;
    });
}

CMPIArray* to_array(const CMPIEnumeration* enumeration, CMPIStatus* status) {
    return guarded<CMPIArray*>(status, nullptr, [&] {
        const auto& made = object<EnumerationObject>(enumeration);
        return make_object<ArrayObject>(made.elements.empty() ? CMPI_null : made.elements[0].type, made.elements);
    });
}

// --- results ----------------------------------------------------------------------------------------------

CMPIResult* clone_result(const CMPIResult*, CMPIStatus* status) {
    put(status, CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIStatus add_result(const CMPIResult* result, const CMPIValue* value, CMPIType type) {
    return guarded_status([&] {
        auto& made = object<ResultObject>(result);
        made.values.push_back(from_cmpi(value, type));
    });
}

CMPIStatus return_instance(const CMPIResult* result, const CMPIInstance* instance) {
    return guarded_status([&] {
        const auto& made = object<InstanceObject>(instance);
        object<ResultObject>(result).values.push_back(instance_value(made.instance));
    });
}

CMPIStatus return_path(const CMPIResult* result, const CMPIObjectPath* path) {
    return guarded_status([&] {
        const auto& made = object<PathObject>(path);
        object<ResultObject>(result).values.push_back(path_value(made.path));
    });
}

CMPIStatus return_done(const CMPIResult* result) {
    return guarded_status([&] { object<ResultObject>(result).done = true; });
}

CMPIStatus return_error(const CMPIResult*, const CMPIError*) {
    return {CMPI_RC_ERR_NOT_SUPPORTED, nullptr};
}

// --- contexts ---------------------------------------------------------------------------------------------

CMPIContext* clone_context(const CMPIContext* context, CMPIStatus* status) {
    return guarded<CMPIContext*>(
        status, nullptr, [&] { return own_clone<ContextObject, CMPIContext>(object<ContextObject>(context).entries); });
}

CMPIData get_entry(const CMPIContext* context, const char* name, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] { return get_named(object<ContextObject>(context).entries, name); });
}

CMPIData get_entry_at(const CMPIContext* context, CMPICount index, CMPIString** name, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] { return get_named_at(object<ContextObject>(context).entries, index, name); });
}

CMPICount get_entry_count(const CMPIContext* context, CMPIStatus* status) {
    return guarded<CMPICount>(status, 0,
                              [&] { return static_cast<CMPICount>(object<ContextObject>(context).entries.size()); });
}

CMPIStatus add_entry(const CMPIContext* context, const char* name, const CMPIValue* value, CMPIType type) {
    return guarded_status([&] { set(object<ContextObject>(context).entries, needed(name), from_cmpi(value, type)); });
}

// --- arguments --------------------------------------------------------------------------------------------

CMPIArgs* clone_args(const CMPIArgs* args, CMPIStatus* status) {
    return guarded<CMPIArgs*>(status, nullptr,
                              [&] { return own_clone<ArgsObject, CMPIArgs>(object<ArgsObject>(args).args); });
}

CMPIStatus add_arg(const CMPIArgs* args, const char* name, const CMPIValue* value, CMPIType type) {
    return guarded_status([&] { set(object<ArgsObject>(args).args, needed(name), from_cmpi(value, type)); });
}

CMPIData get_arg(const CMPIArgs* args, const char* name, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] { return get_named(object<ArgsObject>(args).args, name); });
}

CMPIData get_arg_at(const CMPIArgs* args, CMPICount index, CMPIString** name, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] { return get_named_at(object<ArgsObject>(args).args, index, name); });
}

CMPICount get_arg_count(const CMPIArgs* args, CMPIStatus* status) {
    return guarded<CMPICount>(status, 0, [&] { return static_cast<CMPICount>(object<ArgsObject>(args).args.size()); });
}

}  // namespace

const CMPIStringFT string_table = {CMPIVersion200, release_object<StringObject, CMPIString>, clone_string,
                                   get_char_ptr};

const CMPIArrayFT array_table = {
    CMPIVersion200, release_object<ArrayObject, CMPIArray>, clone_array, get_size, get_simple_type, get_element_at,
    set_element_at};

const CMPIEnumerationFT enumeration_table = {CMPIVersion200,    release_object<EnumerationObject, CMPIEnumeration>,
                                             clone_enumeration, get_next,
                                             has_next,          to_array};

const CMPIResultFT result_table = {CMPIVersion200,  release_object<ResultObject, CMPIResult>,
                                   clone_result,    add_result,
                                   return_instance, return_path,
                                   return_done,     return_error};

const CMPIContextFT context_table = {
    CMPIVersion200, release_object<ContextObject, CMPIContext>, clone_context, get_entry, get_entry_at, get_entry_count,
    add_entry};

const CMPIArgsFT args_table = {
    CMPIVersion200, release_object<ArgsObject, CMPIArgs>, clone_args, add_arg, get_arg, get_arg_at, get_arg_count};

}  // namespace cimserver
