// CIM-XML elements into values. Each throws a CimError for what it can't read.
#pragma once

#include <pugixml.hpp>
#include <string>

#include "cimserver/cimxml/message.h"
#include "cimserver/model/value.h"
#include "cimserver/mof/schema.h"

namespace cimserver {

// NAMESPACE elements of a LOCALNAMESPACEPATH, joined by '/'.
std::string read_name_space(const pugi::xml_node& local_name_space_path);

// INSTANCEPATH, LOCALINSTANCEPATH, INSTANCENAME, CLASSPATH, LOCALCLASSPATH, CLASSNAME.
ObjectPath read_path(const pugi::xml_node& node);

// A method's argument: of the type that the client says, else of the definition's.
CimValue read_argument(const Parameter& parameter, const Element& definition);

}  // namespace cimserver
