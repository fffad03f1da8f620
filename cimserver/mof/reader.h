// Reads class definitions from MOF: classes with qualifiers, properties, references, methods and values, as
// the shipped files use them. Pragmas are passed over; qualifier declarations too; instances are refused.
#pragma once

#include <string>
#include <string_view>

#include "cimserver/mof/schema.h"

namespace cimserver {

// Adds the classes of a text to the schema. A superclass must be there already. False: `error` is
// "FILE:LINE: what is wrong", and the classes before that line were added.
bool read_mof(std::string_view text, const std::string& file, Schema& schema, std::string& error);

// The same from a file of at most 4 MiB.
bool read_mof_file(const std::string& file, Schema& schema, std::string& error);

}  // namespace cimserver
