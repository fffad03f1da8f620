#include "cimserver/cimxml/read_values.h"

#include <string_view>
#include <utility>

namespace cimserver {

namespace {

[[noreturn]] void refuse(const std::string& description) {
    throw CimError{CMPI_RC_ERR_INVALID_PARAMETER, description};
}

// Texts are quoted in descriptions, but not at any length.
std::string quoted(std::string_view text) {
    constexpr std::size_t longest = 80;
    return "\"" + std::string(text.substr(0, longest)) + (text.size() > longest ? "...\"" : "\"");
}

CimValue read_reference(const pugi::xml_node& node) {
    for (const pugi::xml_node& child : node.children()) {
        if (child.type() == pugi::node_element) {
            return path_value(read_path(child));
        }
    }
    refuse("VALUE.REFERENCE is empty");
}

// A key says what it looks like and, maybe, its type.
CMPIType key_type(const pugi::xml_node& node, std::string_view text) {
    const CMPIType named = type_of(node.attribute("TYPE").value());
    if (named != CMPI_null) {
        return named;
    }
    const std::string_view looks = node.attribute("VALUETYPE").value();
    if (looks == "boolean") {
        return CMPI_boolean;
    }
    if (looks == "numeric") {
        return text.starts_with('-') ? CMPI_sint64 : CMPI_uint64;
    }
    return CMPI_string;
}

CimValue read_key_value(const pugi::xml_node& node) {
    const std::string_view text = node.text().get();
    auto value = parse_value(key_type(node, text), text);
    if (!value) {
        refuse("key value " + quoted(text) + " is not of its type");
    }
    return std::move(*value);
}

ObjectPath read_instance_name(const pugi::xml_node& node) {
    ObjectPath path;
    path.class_name = node.attribute("CLASSNAME").value();
    for (const pugi::xml_node& binding : node.children("KEYBINDING")) {
        const std::string name = binding.attribute("NAME").value();
        if (const auto reference = binding.child("VALUE.REFERENCE")) {
            set(path.keys, name, read_reference(reference));
        } else if (const auto value = binding.child("KEYVALUE")) {
            set(path.keys, name, read_key_value(value));
        } else {
            refuse("key " + name + " has no value");
        }
    }
    return path;
}

// The class or instance name in a path element, whatever stands before it.
ObjectPath read_name_in(const pugi::xml_node& node) {
    if (const auto instance = node.child("INSTANCENAME")) {
        return read_instance_name(instance);
    }
    ObjectPath path;
    path.class_name = node.child("CLASSNAME").attribute("NAME").value();
    return path;
}

CimValue read_single(const pugi::xml_node& node, CMPIType type, const std::string& parameter) {
    const std::string_view text = node.text().get();
    auto value = parse_value(type, text);
    if (!value) {
        refuse("parameter " + parameter + ": " + quoted(text) + " is not a " + std::string(type_name(type)));
    }
    return std::move(*value);
}

CimValue read_list(const pugi::xml_node& node, CMPIType type, const std::string& parameter) {
    ValueList list;
    for (const pugi::xml_node& child : node.children()) {
        const std::string_view kind = child.name();
        if (kind == "VALUE.NULL") {
            list.push_back(null_value(type));
        } else if (kind == "VALUE") {
            list.push_back(read_single(child, type, parameter));
        } else if (kind == "VALUE.REFERENCE") {
            list.push_back(read_reference(child));
        } else if (child.type() == pugi::node_element) {
            refuse("parameter " + parameter + ": " + std::string(kind) + " is no element of an array");
        }
    }
    return {static_cast<CMPIType>(type | CMPI_ARRAY), std::move(list)};
}

// Of one element.
CMPIType argument_type(const Parameter& parameter, const Element& definition) {
    const std::string& said = parameter.type;
    if (same_name(said, "reference")) {
        return CMPI_ref;
    }
    if (!said.empty()) {
        const CMPIType type = type_of(said);
        if (type == CMPI_null) {
            refuse("parameter " + parameter.name + ": there is no type " + quoted(said));
        }
        return type;
    }
    return static_cast<CMPIType>(definition.type & ~CMPI_ARRAY);
}

}  // namespace

std::string read_name_space(const pugi::xml_node& local_name_space_path) {
    std::string result;
    for (const pugi::xml_node& part : local_name_space_path.children("NAMESPACE")) {
        result += (result.empty() ? "" : "/") + std::string(part.attribute("NAME").value());
    }
    return result;
}

ObjectPath read_path(const pugi::xml_node& node) {
    const std::string_view kind = node.name();
    if (kind == "INSTANCENAME") {
        return read_instance_name(node);
    }
    ObjectPath path;
    if (kind == "CLASSNAME") {
        path.class_name = node.attribute("NAME").value();
    } else if (kind == "LOCALINSTANCEPATH" || kind == "LOCALCLASSPATH") {
        path = read_name_in(node);
        path.name_space = read_name_space(node.child("LOCALNAMESPACEPATH"));
    } else if (kind == "INSTANCEPATH" || kind == "CLASSPATH") {
        const pugi::xml_node space = node.child("NAMESPACEPATH");
        path = read_name_in(node);
        path.host = space.child("HOST").text().get();
        path.name_space = read_name_space(space.child("LOCALNAMESPACEPATH"));
    } else {
        refuse(std::string(kind) + " is no path");
    }
    return path;
}

CimValue read_argument(const Parameter& parameter, const Element& definition) {
    const CMPIType type = argument_type(parameter, definition);
    const std::string_view kind = parameter.value.name();
    if (kind.empty()) {
        return null_value(static_cast<CMPIType>(type | (definition.type & CMPI_ARRAY)));
    }
    if (kind == "VALUE") {
        return read_single(parameter.value, type, parameter.name);
    }
    if (kind == "VALUE.ARRAY" || kind == "VALUE.REFARRAY") {
        return read_list(parameter.value, type, parameter.name);
    }
    if (kind == "VALUE.REFERENCE") {
        return read_reference(parameter.value);
    }
    refuse("parameter " + parameter.name + ": " + std::string(kind) + " can't be read");
}

}  // namespace cimserver
