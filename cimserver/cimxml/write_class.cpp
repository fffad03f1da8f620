// Class definitions as CIM-XML.
#include <algorithm>
#include <vector>

#include "cimserver/cimxml/write_values.h"

namespace cimserver {

namespace {

void write_qualifiers(pugi::xml_node node, const QualifierList& qualifiers, const ClassOptions& options) {
    if (!options.qualifiers) {
        return;
    }
    for (const Named& qualifier : qualifiers) {
        pugi::xml_node element = node.append_child("QUALIFIER");
        put_attribute(element, "NAME", qualifier.name);
        put_attribute(element, "TYPE", type_name(qualifier.value.type));
        write_value(element, qualifier.value);
    }
}

// An element of a class: "PROPERTY" or "PARAMETER", with the suffix of its kind.
pugi::xml_node append_element(pugi::xml_node parent, const std::string& kind, const Element& element) {
    const bool array = (element.type & CMPI_ARRAY) != 0;
    const bool reference = (element.type & ~CMPI_ARRAY) == CMPI_ref;
    pugi::xml_node node = parent.append_child((kind + (reference ? ".REFERENCE" : array ? ".ARRAY" : "")).c_str());
    put_attribute(node, "NAME", element.name);
    if (reference) {
        put_attribute(node, "REFERENCECLASS", element.reference_class);
    } else {
        put_attribute(node, "TYPE", type_name(element.type));
    }
    return node;
}

void put_origin(pugi::xml_node node, const Class& owner, const Class& definition, const ClassOptions& options) {
    if (options.origin) {
        put_attribute(node, "CLASSORIGIN", owner.name);
    }
    if (&owner != &definition) {
        put_attribute(node, "PROPAGATED", "true");
    }
}

void write_property(pugi::xml_node parent, const Class& owner, const Class& definition, const Element& property,
                    const ClassOptions& options) {
    pugi::xml_node node = append_element(parent, "PROPERTY", property);
    put_origin(node, owner, definition, options);
    write_qualifiers(node, property.qualifiers, options);
    write_value(node, property.initial);
    close_with_end_tag(node);
}

void write_method(pugi::xml_node parent, const Class& owner, const Class& definition, const Method& method,
                  const ClassOptions& options) {
    pugi::xml_node node = parent.append_child("METHOD");
    put_attribute(node, "NAME", method.name);
    put_attribute(node, "TYPE", type_name(method.type));
    put_origin(node, owner, definition, options);
    write_qualifiers(node, method.qualifiers, options);
    for (const Element& parameter : method.parameters) {
        pugi::xml_node element = append_element(node, "PARAMETER", parameter);
        write_qualifiers(element, parameter.qualifiers, options);
        close_with_end_tag(element);
    }
    close_with_end_tag(node);
}

// The class itself, then those above it, without what is overridden below.
template <typename Feature, typename Write>
void for_each_feature(const std::vector<const Class*>& classes, std::vector<Feature> Class::*features, Write write) {
    std::vector<std::string> seen;
    for (const Class* const owner : classes) {
        for (const Feature& feature : owner->*features) {
            if (!contains_name(seen, feature.name)) {
                seen.push_back(feature.name);
                write(*owner, feature);
            }
        }
    }
}

}  // namespace

void write_class(pugi::xml_node parent, const Schema& schema, const Class& definition, const ClassOptions& options) {
    pugi::xml_node node = parent.append_child("CLASS");
    put_attribute(node, "NAME", definition.name);
    if (!definition.superclass.empty()) {
        put_attribute(node, "SUPERCLASS", definition.superclass);
    }
    write_qualifiers(node, definition.qualifiers, options);
    std::vector<const Class*> classes = schema.lineage(definition.name);
    classes.resize(options.local_only ? 1 : classes.size());
    for_each_feature(classes, &Class::properties, [&](const Class& owner, const Element& property) {
        if (!options.properties || contains_name(*options.properties, property.name)) {
            write_property(node, owner, definition, property, options);
        }
    });
    for_each_feature(classes, &Class::methods, [&](const Class& owner, const Method& method) {
        write_method(node, owner, definition, method, options);
    });
}

}  // namespace cimserver
