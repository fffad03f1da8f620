// Values, paths, instances and classes as CIM-XML elements, appended to a node.
#pragma once

#include <pugixml.hpp>
#include <string>
#include <string_view>

#include "cimserver/model/value.h"
#include "cimserver/mof/schema.h"

namespace cimserver {

// What XML 1.0 can carry: bytes that it can't, in UTF-8, are replaced by '?'.
std::string clean_text(std::string_view text);

void put_attribute(pugi::xml_node node, const char* name, std::string_view value);

void write_instance_name(pugi::xml_node parent, const ObjectPath& path);
void write_instance_path(pugi::xml_node parent, const ObjectPath& path);  // with host and namespace
void write_instance(pugi::xml_node parent, const Instance& instance);

// VALUE, VALUE.ARRAY or VALUE.REFERENCE; nothing for null.
void write_value(pugi::xml_node parent, const CimValue& value);

// Some clients don't take an empty-element tag where content may stand: an empty text makes it two tags.
void close_with_end_tag(pugi::xml_node node);

void write_parameter(pugi::xml_node parent, const char* element, const Named& parameter);

struct ClassOptions {
    bool local_only = true;
    bool qualifiers = true;
    bool origin = false;
    PropertyList properties;
};
void write_class(pugi::xml_node parent, const Schema& schema, const Class& definition, const ClassOptions& options);

}  // namespace cimserver
