// What a CIM status says by itself (DSP0200), for answers to which the provider gave no text.
#pragma once

#include <string_view>

#include "cmpi/cmpi.h"

namespace cimserver {

std::string_view status_text(CMPIrc code);

}  // namespace cimserver
