#include "cimserver/cimxml/answer.h"

#include <pugixml.hpp>
#include <sstream>

#include "cimserver/cimxml/message.h"
#include "cimserver/cimxml/operations.h"
#include "cimserver/cimxml/write_values.h"

namespace cimserver {

namespace {

// The message without its response; what it stands in.
pugi::xml_node load_message(pugi::xml_document& document, const std::string& id) {
    document.load_string(
        "<?xml version='1.0' encoding='utf-8'?><CIM CIMVERSION='2.0' DTDVERSION='2.0'>"
        "<MESSAGE ID='' PROTOCOLVERSION='1.0'><SIMPLERSP/></MESSAGE></CIM>",
        pugi::parse_full);
    pugi::xml_node message = document.child("CIM").child("MESSAGE");
    message.attribute("ID").set_value(clean_text(id).c_str());
    return message.child("SIMPLERSP");
}

std::string text_of(const pugi::xml_document& document) {
    std::ostringstream text;
    document.save(text, "", pugi::format_raw, pugi::encoding_utf8);
    return text.str();
}

// The response element with a result, or with the error alone. Returns the message of a success.
std::string append_response(pugi::xml_node simple, const Broker& broker, const Message& message,
                            const std::string& host) {
    pugi::xml_node response = simple.append_child(message.is_method_call ? "METHODRESPONSE" : "IMETHODRESPONSE");
    put_attribute(response, "NAME", message.name);
    try {
        if (message.is_method_call) {
            return run_method_call(broker, message, response);
        }
        run_operation(broker, message, host, response);
    } catch (const CimError& failure) {
        response.remove_children();
        pugi::xml_node error = response.append_child("ERROR");
        error.append_attribute("CODE").set_value(static_cast<unsigned>(failure.code));
        put_attribute(error, "DESCRIPTION", failure.description);
    }
    return {};
}

}  // namespace

HttpAnswer answer_cim_xml(const Broker& broker, std::string_view body, const std::string& host) {
    try {
        Message message;
        pugi::xml_document document;
        try {
            read_message(body, message);
        } catch (const CimError& failure) {  // in a parameter or path: there is no operation to answer for yet
            return {400, "request-not-valid", failure.description};
        }
        const std::string said = append_response(load_message(document, message.id), broker, message, host);
        if (!said.empty()) {
            // CIM-XML has no place for the message of a success.
            document.append_child(pugi::node_comment).set_value((" " + clean_text(said) + " ").c_str());
        }
        return {200, {}, text_of(document)};
    } catch (const ProtocolError& error) {
        return {error.http_status, error.cim_error, error.description};
    } catch (...) {
        return {500, {}, "out of resources"};
    }
}

}  // namespace cimserver
