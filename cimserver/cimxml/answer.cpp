#include "cimserver/cimxml/answer.h"

#include <pugixml.hpp>

#include "cimserver/cimxml/message.h"
#include "cimserver/cimxml/operations.h"
#include "cimserver/cimxml/write_values.h"

namespace cimserver {

namespace {

struct StringWriter final : pugi::xml_writer {
    std::string text;
    void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
};

pugi::xml_node append_message(pugi::xml_document& document, const std::string& id) {
    pugi::xml_node declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version").set_value("1.0");
    declaration.append_attribute("encoding").set_value("utf-8");
    pugi::xml_node cim = document.append_child("CIM");
    cim.append_attribute("CIMVERSION").set_value("2.0");
    cim.append_attribute("DTDVERSION").set_value("2.0");
    pugi::xml_node message = cim.append_child("MESSAGE");
    message.append_attribute("ID").set_value(clean_text(id).c_str());
    message.append_attribute("PROTOCOLVERSION").set_value("1.0");
    return message.append_child("SIMPLERSP");
}

std::string text_of(const pugi::xml_document& document) {
    StringWriter writer;
    document.save(writer, "", pugi::format_raw, pugi::encoding_utf8);
    return std::move(writer.text);
}

// The response element with a result, or with the error alone. Returns the message of a success.
std::string append_response(pugi::xml_node simple, const Broker& broker, const Message& message,
                            const std::string& host) {
    const char* const element = message.is_method_call ? "METHODRESPONSE" : "IMETHODRESPONSE";
    const auto append = [&] {
        pugi::xml_node response = simple.append_child(element);
        response.append_attribute("NAME").set_value(clean_text(message.name).c_str());
        return response;
    };
    pugi::xml_node response = append();
    try {
        if (message.is_method_call) {
            return run_method_call(broker, message, response);
        }
        run_operation(broker, message, host, response);
    } catch (const CimError& failure) {
        simple.remove_child(response);
        pugi::xml_node error = append().append_child("ERROR");
        error.append_attribute("CODE").set_value(static_cast<unsigned>(failure.code));
        error.append_attribute("DESCRIPTION").set_value(clean_text(failure.description).c_str());
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
        const std::string said = append_response(append_message(document, message.id), broker, message, host);
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
