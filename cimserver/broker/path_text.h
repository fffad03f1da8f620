// An object path as a person reads it.
#pragma once

#include <string>

#include "cimserver/model/value.h"

namespace cimserver {

std::string path_text(const ObjectPath& path);

}  // namespace cimserver
