#include "cimserver/cimxml/message.h"

#include "cimserver/cimxml/read_values.h"

namespace cimserver {

namespace {

[[noreturn]] void not_valid(const std::string& description) {
    throw ProtocolError{400, "request-not-valid", description};
}

pugi::xml_node needed_child(const pugi::xml_node& parent, const char* name) {
    const pugi::xml_node child = parent.child(name);
    if (!child) {
        not_valid(std::string(parent.name()) + " has no " + name);
    }
    return child;
}

bool is_too_deep(pugi::xml_document& document) {
    struct Walker final : pugi::xml_tree_walker {
        bool found = false;
        bool for_each(pugi::xml_node& node) override {
            found = node.type() == pugi::node_element && depth() >= static_cast<int>(MAX_XML_DEPTH);
            return !found;
        }
    } walker;
    document.traverse(walker);
    return walker.found;
}

void check_versions(const pugi::xml_node& cim, const pugi::xml_node& message) {
    const auto is_2 = [](const char* version) { return version[0] == '2' && version[1] == '.'; };
    if (!is_2(cim.attribute("CIMVERSION").value())) {
        throw ProtocolError{501, "unsupported-cim-version", "CIMVERSION is not 2.x"};
    }
    if (!is_2(cim.attribute("DTDVERSION").value())) {
        throw ProtocolError{501, "unsupported-dtd-version", "DTDVERSION is not 2.x"};
    }
    const char* const protocol = message.attribute("PROTOCOLVERSION").value();
    if (protocol[0] != '1' || protocol[1] != '.') {
        throw ProtocolError{501, "unsupported-protocol-version", "PROTOCOLVERSION is not 1.x"};
    }
}

void read_parameters(const pugi::xml_node& call, const char* element, Message& message) {
    for (const pugi::xml_node& node : call.children(element)) {
        Parameter parameter{node.attribute("NAME").value(), node.attribute("PARAMTYPE").value(), {}};
        for (const pugi::xml_node& child : node.children()) {
            if (child.type() == pugi::node_element) {
                parameter.value = child;
                break;
            }
        }
        if (find_named(message.parameters, parameter.name) != nullptr) {
            throw CimError{CMPI_RC_ERR_INVALID_PARAMETER, "parameter " + parameter.name + " is given twice"};
        }
        message.parameters.push_back(std::move(parameter));
    }
}

void read_method_call(const pugi::xml_node& call, Message& message) {
    message.is_method_call = true;
    message.name = call.attribute("NAME").value();
    if (const auto instance = call.child("LOCALINSTANCEPATH")) {
        message.target = read_path(instance);
    } else {
        message.target = read_path(needed_child(call, "LOCALCLASSPATH"));
    }
    read_parameters(call, "PARAMVALUE", message);
}

void read_operation(const pugi::xml_node& call, Message& message) {
    message.name = call.attribute("NAME").value();
    message.target.name_space = read_name_space(needed_child(call, "LOCALNAMESPACEPATH"));
    read_parameters(call, "IPARAMVALUE", message);
}

}  // namespace

void read_message(std::string_view body, Message& message) {
    const pugi::xml_parse_result parsed =
        message.document.load_buffer(body.data(), body.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!parsed) {
        throw ProtocolError{400, "request-not-well-formed",
                            std::string(parsed.description()) + " at byte " + std::to_string(parsed.offset)};
    }
    if (is_too_deep(message.document)) {
        not_valid("elements are nested too deeply");
    }
    const pugi::xml_node cim = needed_child(message.document, "CIM");
    const pugi::xml_node envelope = needed_child(cim, "MESSAGE");
    message.id = envelope.attribute("ID").value();
    check_versions(cim, envelope);
    if (envelope.child("MULTIREQ")) {
        throw ProtocolError{501, "multiple-requests-unsupported", "one request a message"};
    }
    const pugi::xml_node request = needed_child(envelope, "SIMPLEREQ");
    if (const auto call = request.child("METHODCALL")) {
        read_method_call(call, message);
    } else {
        read_operation(needed_child(request, "IMETHODCALL"), message);
    }
    if (message.name.empty()) {
        not_valid("the call has no NAME");
    }
}

}  // namespace cimserver
