#include "cimserver/cimxml/operations.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "cimserver/cimxml/read_values.h"
#include "cimserver/cimxml/write_values.h"

namespace cimserver {

namespace {

// --- parameters of operations -----------------------------------------------------------------------------

const Parameter* find_parameter(const Message& message, std::string_view name) {
    const Parameter* const found = find_named(message.parameters, name);
    return found == nullptr || !found->value ? nullptr : found;
}

std::string text_of(const Message& message, std::string_view name) {
    const Parameter* const parameter = find_parameter(message, name);
    return parameter == nullptr ? std::string() : parameter->value.text().get();
}

bool flag_of(const Message& message, std::string_view name, bool otherwise) {
    const Parameter* const parameter = find_parameter(message, name);
    return parameter == nullptr ? otherwise : same_name(parameter->value.text().get(), "true");
}

std::string class_name_of(const Message& message, std::string_view name) {
    const Parameter* const parameter = find_parameter(message, name);
    return parameter == nullptr ? std::string() : parameter->value.attribute("NAME").value();
}

// An empty list asks for all properties, as with common servers.
PropertyList properties_of(const Message& message) {
    const Parameter* const parameter = find_parameter(message, "PropertyList");
    if (parameter == nullptr || parameter->value.child("VALUE").empty()) {
        return std::nullopt;
    }
    PropertyList list(std::in_place);
    for (const pugi::xml_node& value : parameter->value.children("VALUE")) {
        list->emplace_back(value.text().get());
    }
    return list;
}

// A provider returns its keys, asked for or not; a client finds them in the path.
void keep_asked(Instance& instance, const PropertyList& asked) {
    if (asked) {
        std::erase_if(instance.properties,
                      [&](const Named& property) { return !contains_name(*asked, property.name); });
    }
}

const Class& known_class(const Broker& broker, const std::string& name, CMPIrc code) {
    const Class* const definition = broker.schema().find(name);
    if (definition == nullptr) {
        throw CimError{code, name.empty() ? std::string("no class is named") : "class " + name + " is not known"};
    }
    return *definition;
}

// The class to enumerate, in the namespace of the request.
ObjectPath class_path_of(const Broker& broker, const Message& message) {
    ObjectPath path = message.target;
    path.class_name = known_class(broker, class_name_of(message, "ClassName"), CMPI_RC_ERR_INVALID_CLASS).name;
    return path;
}

ObjectPath instance_path_of(const Message& message, std::string_view name) {
    const Parameter* const parameter = find_parameter(message, name);
    if (parameter == nullptr) {
        throw CimError{CMPI_RC_ERR_INVALID_PARAMETER, std::string(name) + " is missing"};
    }
    ObjectPath path = read_path(parameter->value);
    path.name_space = message.target.name_space;
    return path;
}

// An unknown class in a filter is told, where a provider would answer nothing.
AssociationFilter filter_of(const Broker& broker, const Message& message) {
    AssociationFilter filter{class_name_of(message, "AssocClass"), class_name_of(message, "ResultClass"),
                             text_of(message, "Role"), text_of(message, "ResultRole")};
    for (const std::string& name : {filter.assoc_class, filter.result_class}) {
        if (!name.empty()) {
            (void)known_class(broker, name, CMPI_RC_ERR_INVALID_PARAMETER);
        }
    }
    return filter;
}

ObjectPath source_of(const Broker& broker, const Message& message) {
    ObjectPath path = instance_path_of(message, "ObjectName");
    (void)known_class(broker, path.class_name, CMPI_RC_ERR_INVALID_PARAMETER);
    if (path.keys.empty()) {
        throw CimError{CMPI_RC_ERR_NOT_SUPPORTED, "associations of a class are not supported; name an instance"};
    }
    return path;
}

// --- results ----------------------------------------------------------------------------------------------

// What a CIM status says by itself (DSP0200), for answers to which the provider gave no text.
std::string_view status_text(CMPIrc code) {
    constexpr std::string_view texts[] = {
        "success",
        "failed",
        "access denied",
        "invalid namespace",
        "invalid parameter",
        "invalid class",
        "not found",
        "not supported",
        "class has children",
        "class has instances",
        "invalid superclass",
        "already exists",
        "no such property",
        "type mismatch",
        "query language not supported",
        "invalid query",
        "method not available",
        "method not found",
    };
    return code < std::size(texts) ? texts[code] : "the provider failed";
}

void throw_failure(const ProviderAnswer& answer) {
    if (answer.code != CMPI_RC_OK) {
        throw CimError{answer.code, answer.message.empty() ? std::string(status_text(answer.code)) : answer.message};
    }
}

// --- operations -------------------------------------------------------------------------------------------

struct Call {
    const Broker& broker;
    const Message& message;
    const std::string& host;
    pugi::xml_node result;  // IRETURNVALUE
};

void complete(ObjectPath& path, const ObjectPath& asked, const std::string& host);

void complete_references(NamedList& list, const ObjectPath& asked, const std::string& host) {
    for (Named& named : list) {
        if (const ObjectPath* const reference = reference_in(named.value)) {
            ObjectPath whole = *reference;
            complete(whole, asked, host);
            named.value = path_value(std::move(whole));
        }
    }
}

void complete(ObjectPath& path, const ObjectPath& asked, const std::string& host) {
    path.host = host;
    if (path.name_space.empty()) {
        path.name_space = asked.name_space;
    }
    complete_references(path.keys, asked, host);
}

// What a provider answered, as it goes out: no failure, whole paths, the properties that are asked for.
ProviderAnswer finished(ProviderAnswer answer, const Call& call, const PropertyList& asked = {}) {
    throw_failure(answer);
    for (ObjectPath& path : answer.paths) {
        complete(path, call.message.target, call.host);
    }
    for (Instance& instance : answer.instances) {
        keep_asked(instance, asked);
        complete(instance.path, call.message.target, call.host);
        complete_references(instance.properties, call.message.target, call.host);
    }
    return answer;
}

ClassOptions class_options_of(const Message& message) {
    return {flag_of(message, "LocalOnly", true), flag_of(message, "IncludeQualifiers", true),
            flag_of(message, "IncludeClassOrigin", false), properties_of(message)};
}

void get_class(const Call& call) {
    const Class& definition = known_class(call.broker, class_name_of(call.message, "ClassName"), CMPI_RC_ERR_NOT_FOUND);
    write_class(call.result, call.broker.schema(), definition, class_options_of(call.message));
}

std::vector<const Class*> classes_below(const Call& call) {
    const std::string name = class_name_of(call.message, "ClassName");
    if (!name.empty()) {
        (void)known_class(call.broker, name, CMPI_RC_ERR_INVALID_CLASS);
    }
    return call.broker.schema().subclasses(name, flag_of(call.message, "DeepInheritance", false));
}

void enumerate_class_names(const Call& call) {
    for (const Class* const definition : classes_below(call)) {
        put_attribute(pugi::xml_node(call.result).append_child("CLASSNAME"), "NAME", definition->name);
    }
}

void enumerate_classes(const Call& call) {
    for (const Class* const definition : classes_below(call)) {
        write_class(call.result, call.broker.schema(), *definition, class_options_of(call.message));
    }
}

void enumerate_instance_names(const Call& call) {
    const ProviderAnswer answer =
        finished(call.broker.enumerate_instance_names(class_path_of(call.broker, call.message)), call);
    for (const ObjectPath& path : answer.paths) {
        write_instance_name(call.result, path);
    }
}

void enumerate_instances(const Call& call) {
    const PropertyList properties = properties_of(call.message);
    const ObjectPath path = class_path_of(call.broker, call.message);
    const ProviderAnswer answer = finished(call.broker.enumerate_instances(path, properties), call, properties);
    for (const Instance& instance : answer.instances) {
        pugi::xml_node named = pugi::xml_node(call.result).append_child("VALUE.NAMEDINSTANCE");
        write_instance_name(named, instance.path);
        write_instance(named, instance);
    }
}

void get_instance(const Call& call) {
    const ObjectPath path = instance_path_of(call.message, "InstanceName");
    (void)known_class(call.broker, path.class_name, CMPI_RC_ERR_INVALID_CLASS);
    const PropertyList properties = properties_of(call.message);
    const ProviderAnswer answer = finished(call.broker.get_instance(path, properties), call, properties);
    write_instance(call.result, answer.instances.front());
}

// Associators and References.
template <ProviderAnswer (Broker::*operation)(const ObjectPath&, const AssociationFilter&, const PropertyList&) const>
void associated_objects(const Call& call) {
    const PropertyList properties = properties_of(call.message);
    const ObjectPath source = source_of(call.broker, call.message);
    const AssociationFilter filter = filter_of(call.broker, call.message);
    const ProviderAnswer answer = finished((call.broker.*operation)(source, filter, properties), call, properties);
    for (const Instance& instance : answer.instances) {
        pugi::xml_node object = pugi::xml_node(call.result).append_child("VALUE.OBJECTWITHPATH");
        write_instance_path(object, instance.path);
        write_instance(object, instance);
    }
}

// AssociatorNames and ReferenceNames.
template <ProviderAnswer (Broker::*operation)(const ObjectPath&, const AssociationFilter&) const>
void associated_names(const Call& call) {
    const ObjectPath source = source_of(call.broker, call.message);
    const AssociationFilter filter = filter_of(call.broker, call.message);
    const ProviderAnswer answer = finished((call.broker.*operation)(source, filter), call);
    for (const ObjectPath& path : answer.paths) {
        write_instance_path(pugi::xml_node(call.result).append_child("OBJECTPATH"), path);
    }
}

struct Row {
    std::string_view name;
    void (*run)(const Call& call);
};
constexpr Row operations[] = {
    {"GetClass", get_class},
    {"EnumerateClasses", enumerate_classes},
    {"EnumerateClassNames", enumerate_class_names},
    {"GetInstance", get_instance},
    {"EnumerateInstances", enumerate_instances},
    {"EnumerateInstanceNames", enumerate_instance_names},
    {"Associators", associated_objects<&Broker::associators>},
    {"AssociatorNames", associated_names<&Broker::associator_names>},
    {"References", associated_objects<&Broker::references>},
    {"ReferenceNames", associated_names<&Broker::reference_names>},
};

void check_name_space(const Broker& broker, const Message& message) {
    if (!broker.has_name_space(message.target.name_space)) {
        throw CimError{CMPI_RC_ERR_INVALID_NAMESPACE, "namespace " + message.target.name_space + " is not known"};
    }
}

NamedList arguments_of(const Message& message, const Method& method) {
    NamedList arguments;
    for (const Parameter& parameter : message.parameters) {
        const Element* const definition = find_named(method.parameters, parameter.name);
        if (definition == nullptr) {
            throw CimError{CMPI_RC_ERR_INVALID_PARAMETER,
                           "method " + method.name + " has no parameter " + parameter.name};
        }
        arguments.push_back({definition->name, read_argument(parameter, *definition)});
    }
    return arguments;
}

}  // namespace

void run_operation(const Broker& broker, const Message& message, const std::string& host, pugi::xml_node response) {
    const auto* const row = std::find_if(std::begin(operations), std::end(operations),
                                         [&](const Row& r) { return r.name == message.name; });
    if (row == std::end(operations)) {
        throw CimError{CMPI_RC_ERR_NOT_SUPPORTED, "operation " + message.name + " is not supported"};
    }
    check_name_space(broker, message);
    const pugi::xml_node result = response.append_child("IRETURNVALUE");
    row->run({broker, message, host, result});
    close_with_end_tag(result);
}

std::string run_method_call(const Broker& broker, const Message& message, pugi::xml_node response) {
    check_name_space(broker, message);
    const Class& definition = known_class(broker, message.target.class_name, CMPI_RC_ERR_INVALID_CLASS);
    const Method* const method = broker.schema().find_method(definition.name, message.name);
    if (method == nullptr) {
        throw CimError{CMPI_RC_ERR_METHOD_NOT_FOUND, "class " + definition.name + " has no method " + message.name};
    }
    const ProviderAnswer answer = broker.invoke_method(message.target, message.name, arguments_of(message, *method));
    throw_failure(answer);
    if (!answer.return_value.is_null()) {
        write_parameter(response, "RETURNVALUE", {{}, answer.return_value});
    }
    for (const Named& out : answer.out) {
        write_parameter(response, "PARAMVALUE", out);
    }
    return answer.message;
}

}  // namespace cimserver
