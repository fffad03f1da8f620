// The request message: what is asked for and with what, as XML nodes that are still to be read.
#pragma once

#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "cimserver/model/value.h"

namespace cimserver {

// Thrown: an answer in CIM-XML with a CIM status.
struct CimError {
    CMPIrc code;
    std::string description;
};

// Thrown: refused before there is an operation that could answer.
struct ProtocolError {
    int http_status;
    std::string cim_error;
    std::string description;
};

struct Parameter {
    std::string name;
    std::string type;      // as the client says; empty: it doesn't
    pugi::xml_node value;  // the element inside; null when there is none: a null value
};

struct Message {
    pugi::xml_document document;
    std::string id;
    bool is_method_call = false;  // of a class's own method, not an operation
    std::string name;
    ObjectPath target;  // a method call's object or class; an operation's namespace
    std::vector<Parameter> parameters;
};

inline constexpr std::size_t MAX_XML_DEPTH = 64;

// Fills the message or throws one of the two.
void read_message(std::string_view body, Message& message);

}  // namespace cimserver
