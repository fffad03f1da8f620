// One CIM-XML request, from its body to the answer's: DSP0200 (operations over HTTP) and DSP0201 (XML).
#pragma once

#include <string>
#include <string_view>

#include "cimserver/broker/broker.h"

namespace cimserver {

struct HttpAnswer {
    int status = 200;
    std::string cim_error;  // value of the header CIMError of a refused request
    std::string body;
};

// Never throws. Runs the operation on the calling thread; `host` is named in the paths that are answered.
HttpAnswer answer_cim_xml(const Broker& broker, std::string_view body, const std::string& host);

}  // namespace cimserver
