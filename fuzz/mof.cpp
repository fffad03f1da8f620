// Class definitions (MOF) and the registration of classes: any text makes classes that hang together, or a complaint
// with file and line.
#include <algorithm>
#include <cstdlib>
#include <pugixml.hpp>
#include <sstream>

#include "cimserver/cimxml/write_values.h"
#include "cimserver/mof/reader.h"
#include "cimserver/registration.h"
#include "support/host.h"

namespace {

using namespace cimserver;

void require_complaint(const std::string& error, std::string_view text) {
    const auto lines = static_cast<unsigned long>(std::count(text.begin(), text.end(), '\n')) + 1;
    fuzz::require(error.starts_with("f:"), "a complaint without its file", error);
    char* end = nullptr;
    const unsigned long line = std::strtoul(error.c_str() + 2, &end, 10);
    fuzz::require(line >= 1 && line <= lines, "a complaint about no line", error);
    fuzz::require(end[0] == ':' && error.c_str() + error.size() - end > 2, "a complaint that says nothing", error);
}

// Superclasses end, and every class is written as XML that reads back.
void require_sound(const Schema& schema) {
    for (const Class* const each : schema.subclasses("", true)) {
        fuzz::require(schema.find(each->name) == each && schema.is_a(each->name, each->name), "a class isn't itself",
                      each->name);
        for (const Class* const above : schema.lineage(each->name)) {
            fuzz::require(schema.is_a(each->name, above->name), "a class isn't its superclass", each->name);
        }
        pugi::xml_document document;
        write_class(document, schema, *each, {false, true, true, std::nullopt});
        std::ostringstream written;
        document.save(written, "", pugi::format_raw);
        pugi::xml_document again;
        fuzz::require(static_cast<bool>(again.load_string(written.str().c_str())), "a class isn't written as XML",
                      written.str());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::string error;
    std::vector<Registration> list;
    if (!read_registrations(text, "f", list, error)) {
        require_complaint(error, text);
    }
    for (const Registration& each : list) {
        fuzz::require(!each.class_name.empty(), "a registration without a class");
    }
    Schema schema;
    if (!read_mof(text, "f", schema, error)) {
        require_complaint(error, text);
    }
    require_sound(schema);
    return 0;
}
