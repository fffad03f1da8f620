#include "cimserver/cimxml/write_values.h"

namespace cimserver {

namespace {

void put_text(pugi::xml_node node, std::string_view text) {
    node.append_child(pugi::node_pcdata).set_value(clean_text(text).c_str());
}

// Bytes of the UTF-8 sequence at the beginning that XML can carry; 0: none.
std::size_t sequence_length(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto first = byte(0);
    if (first < 0x80) {
        return first >= 0x20 || first == '\t' || first == '\n' || first == '\r' ? 1 : 0;
    }
    const std::size_t length = first >= 0xF0 && first < 0xF5 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 0;
    if (first >= 0xF5 || length == 0 || text.size() < length) {
        return 0;
    }
    unsigned code = first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
        code = code << 6 | (byte(i) & 0x3FU);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return overlong || surrogate || code > 0x10FFFF || code == 0xFFFE || code == 0xFFFF ? 0 : length;
}

void write_name_space(pugi::xml_node parent, std::string_view name_space) {
    const pugi::xml_node path = parent.append_child("LOCALNAMESPACEPATH");
    while (!name_space.empty()) {
        const auto slash = std::min(name_space.find('/'), name_space.size());
        put_attribute(pugi::xml_node(path).append_child("NAMESPACE"), "NAME", name_space.substr(0, slash));
        name_space.remove_prefix(std::min(slash + 1, name_space.size()));
    }
}

void write_reference(pugi::xml_node parent, const ObjectPath& path) {
    pugi::xml_node reference = parent.append_child("VALUE.REFERENCE");
    if (path.name_space.empty()) {
        write_instance_name(reference, path);
    } else if (path.host.empty()) {
        pugi::xml_node local = reference.append_child("LOCALINSTANCEPATH");
        write_name_space(local, path.name_space);
        write_instance_name(local, path);
    } else {
        write_instance_path(reference, path);
    }
}

std::string_view type_of_value(const CimValue& value) {
    const std::string_view name = type_name(value.type);
    return name.empty() ? "string" : name;
}

}  // namespace

std::string clean_text(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = sequence_length(text);
        if (length == 0) {
            result += '?';
            text.remove_prefix(1);
        } else {
            result += text.substr(0, length);
            text.remove_prefix(length);
        }
    }
    return result;
}

void put_attribute(pugi::xml_node node, const char* name, std::string_view value) {
    node.append_attribute(name).set_value(clean_text(value).c_str());
}

void write_instance_name(pugi::xml_node parent, const ObjectPath& path) {
    pugi::xml_node name = parent.append_child("INSTANCENAME");
    put_attribute(name, "CLASSNAME", path.class_name);
    for (const Named& key : path.keys) {
        pugi::xml_node binding = name.append_child("KEYBINDING");
        put_attribute(binding, "NAME", key.name);
        if (const ObjectPath* const reference = reference_in(key.value)) {
            write_reference(binding, *reference);
            continue;
        }
        pugi::xml_node value = binding.append_child("KEYVALUE");
        const bool is_text = key.value.type == CMPI_string || key.value.type == CMPI_dateTime;
        put_attribute(value, "VALUETYPE", is_text ? "string" : key.value.type == CMPI_boolean ? "boolean" : "numeric");
        put_text(value, value_text(key.value));
    }
}

void write_instance_path(pugi::xml_node parent, const ObjectPath& path) {
    pugi::xml_node whole = parent.append_child("INSTANCEPATH");
    pugi::xml_node space = whole.append_child("NAMESPACEPATH");
    put_text(space.append_child("HOST"), path.host);
    write_name_space(space, path.name_space);
    write_instance_name(whole, path);
}

void write_value(pugi::xml_node parent, const CimValue& value) {
    if (value.is_null()) {
        return;
    }
    if (const ObjectPath* const reference = reference_in(value)) {
        write_reference(parent, *reference);
        return;
    }
    const auto* const list = std::get_if<ValueList>(&value.data);
    if (list == nullptr) {
        put_text(parent.append_child("VALUE"), value_text(value));
        return;
    }
    pugi::xml_node array = parent.append_child("VALUE.ARRAY");
    for (const CimValue& element : *list) {
        if (element.is_null()) {
            array.append_child("VALUE.NULL");
        } else {
            write_value(array, element);
        }
    }
}

void close_with_end_tag(pugi::xml_node node) {
    if (!node.first_child()) {
        node.append_child(pugi::node_pcdata);
    }
}

void write_parameter(pugi::xml_node parent, const char* element, const Named& parameter) {
    pugi::xml_node node = parent.append_child(element);
    if (!parameter.name.empty()) {
        put_attribute(node, "NAME", parameter.name);
    }
    put_attribute(node, "PARAMTYPE", parameter.value.type == CMPI_ref ? "reference" : type_of_value(parameter.value));
    write_value(node, parameter.value);
}

void write_instance(pugi::xml_node parent, const Instance& instance) {
    pugi::xml_node node = parent.append_child("INSTANCE");
    put_attribute(node, "CLASSNAME", instance.path.class_name);
    for (const Named& property : instance.properties) {
        const CimValue& value = property.value;
        if (value.type == CMPI_ref) {
            pugi::xml_node reference = node.append_child("PROPERTY.REFERENCE");
            put_attribute(reference, "NAME", property.name);
            if (const ObjectPath* const path = reference_in(value)) {
                put_attribute(reference, "REFERENCECLASS", path->class_name);
            }
            write_value(reference, value);
        } else {
            pugi::xml_node plain = node.append_child(value.is_array() ? "PROPERTY.ARRAY" : "PROPERTY");
            put_attribute(plain, "NAME", property.name);
            put_attribute(plain, "TYPE", type_of_value(value));
            write_value(plain, value);
        }
    }
}

}  // namespace cimserver
