// CIM-XML requests of any bytes to the providers on a small site: each is answered with a well-formed message, or is
// refused with one of the protocol's errors.
#include <algorithm>
#include <cstring>
#include <pugixml.hpp>

#include "OstrelProvider/log_level.h"
#include "cimserver/cimxml/answer.h"
#include "cimserver/cimxml/message.h"
#include "cimserver/cimxml/write_values.h"
#include "cimserver/server.h"
#include "support/host.h"
#include "support/providers.h"

namespace {

using namespace cimserver;
using fuzz::require;

void require_message(const std::string& body) {
    require(clean_text(body) == body, "no text of XML", body);
    pugi::xml_document document;
    require(static_cast<bool>(document.load_buffer(body.data(), body.size(), pugi::parse_full)), "not well-formed",
            body);
    const pugi::xml_node response = document.child("CIM").child("MESSAGE").child("SIMPLERSP").first_child();
    require(std::strcmp(response.name(), "IMETHODRESPONSE") == 0 || std::strcmp(response.name(), "METHODRESPONSE") == 0,
            "no response", body);
    const pugi::xml_node error = response.child("ERROR");
    require(!error || (error.attribute("CODE").as_uint() >= 1 && error == response.first_child() &&
                       error == response.last_child()),
            "an error without a code, or not alone", body);
}

void require_refusal(const HttpAnswer& answer) {
    static constexpr std::string_view ERRORS[] = {"request-not-well-formed",      "request-not-valid",
                                                  "unsupported-cim-version",      "unsupported-dtd-version",
                                                  "unsupported-protocol-version", "multiple-requests-unsupported"};
    require(answer.status == 400 || answer.status == 501, "another HTTP status", std::to_string(answer.status));
    require(std::find(std::begin(ERRORS), std::end(ERRORS), answer.cim_error) != std::end(ERRORS), "another CIM error",
            answer.cim_error);
    require(!answer.body.empty(), "refused without a word");
}

unsigned depth_of(const pugi::xml_node& node) {
    unsigned deepest = 0;
    for (const pugi::xml_node& each : node.children()) {
        deepest = std::max(deepest, each.type() == pugi::node_element ? 1 + depth_of(each) : 0);
    }
    return deepest;
}

void read_address(std::string_view text) {
    ServerOptions options;
    if (!parse_address(text, options)) {
        require(options.port == 5988 && options.address == "127.0.0.1", "refused, and changed all the same");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view body(reinterpret_cast<const char*>(data), size);
    fuzz::Providers& providers = fuzz::Providers::get();
    log_level = 2;
    // One in sixteen may start a worker, so that most are quick.
    providers.begin(fuzz::config_of(0), size % 16 == 1);
    const HttpAnswer answer = answer_cim_xml(providers.broker(), body, "localhost");
    if (answer.status == 200) {
        require(answer.cim_error.empty(), "carried out, and an error all the same");
        pugi::xml_document asked;
        asked.load_buffer(body.data(), body.size(), pugi::parse_default, pugi::encoding_utf8);
        require(depth_of(asked) <= MAX_XML_DEPTH, "carried out, and too deep");
        require_message(answer.body);
    } else {
        require_refusal(answer);
    }
    read_address(body.substr(0, 40));
    providers.finish();
    return 0;
}
