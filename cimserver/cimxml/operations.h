// The operations by name.
#pragma once

#include <pugixml.hpp>
#include <string>

#include "cimserver/broker/broker.h"
#include "cimserver/cimxml/message.h"

namespace cimserver {

// Carries out the operation or method call and appends its result to the response element. Throws CimError.
void run_operation(const Broker& broker, const Message& message, const std::string& host, pugi::xml_node response);
// Returns the message of a success, for which CIM-XML has no place.
std::string run_method_call(const Broker& broker, const Message& message, pugi::xml_node response);

}  // namespace cimserver
