// CIM-XML requests of any bytes to the providers on a small site: each is answered with a well-formed message, or is
// refused with one of the protocol's errors.
#include <algorithm>
#include <cstring>
#include <pugixml.hpp>

#include "OstrelProvider/log.h"
#include "cimserver/cimxml/answer.h"
#include "cimserver/cimxml/message.h"
#include "cimserver/server.h"
#include "support/host.h"
#include "support/providers.h"

namespace {

using namespace cimserver;
using fuzz::require;

// The least that a strict reader wants: UTF-8 of the characters that XML 1.0 allows.
bool is_xml_text(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80   ? 1
                                   : lead < 0xC2 ? 0
                                   : lead < 0xE0 ? 2
                                   : lead < 0xF0 ? 3
                                   : lead < 0xF5 ? 4
                                                 : 0;
        if (length == 0 || i + length > text.size()) {
            return false;
        }
        std::uint32_t code = length == 1 ? lead : lead & (0xFFU >> (length + 1));
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            code = code << 6 | (next & 0x3F);
        }
        static constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
        const bool allowed = code >= 0x20 ? code < 0xD800 || (code > 0xDFFF && code < 0xFFFE) || code > 0xFFFF
                                          : code == '\t' || code == '\n' || code == '\r';
        if (!allowed || code < least[length] || code > 0x10FFFF) {
            return false;
        }
        i += length;
    }
    return true;
}

void require_message(const std::string& body) {
    require(is_xml_text(body), "no text of XML", body);
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

struct Deepest final : pugi::xml_tree_walker {
    int elements = 0;
    bool for_each(pugi::xml_node& node) override {
        if (node.type() == pugi::node_element) {
            elements = std::max(elements, depth() + 1);
        }
        return true;
    }
};

bool is_too_deep(std::string_view body) {
    pugi::xml_document document;
    document.load_buffer(body.data(), body.size(), pugi::parse_default, pugi::encoding_utf8);
    Deepest deepest;
    document.traverse(deepest);
    return deepest.elements > static_cast<int>(MAX_XML_DEPTH);
}

void read_address(std::string_view text) {
    ServerOptions options;
    if (!parse_address(std::string(text), options)) {
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
        require(answer.cim_error.empty() && !is_too_deep(body), "carried out, and an error all the same");
        require_message(answer.body);
    } else {
        require_refusal(answer);
    }
    read_address(body.substr(0, 40));
    providers.finish();
    return 0;
}
