// Method arguments as a client sent them. Any argument may be absent, null or of a type that differs from the class
// definition.
#pragma once

#include "cmpi/cmpi.h"
#include "common/cmpi_objects.h"

namespace oxr {

// An input argument. If it is absent: CMPI_null and CMPI_notFound, whatever the broker returned.
inline CMPIData get_argument(const CMPIArgs* args, const char* name) {
    constexpr CMPIData absent{CMPI_null, CMPI_notFound, {}};
    if (args == nullptr) {
        return absent;
    }
    CMPIStatus status{CMPI_RC_OK, nullptr};
    const CMPIData argument = CMGetArg(args, name, &status);
    return status.rc == CMPI_RC_OK && (argument.state & (CMPI_notFound | CMPI_badValue)) == 0 ? argument : absent;
}

// A status with a message for the client, or without one if `message` is null.
inline CMPIStatus status_with_message(const CMPIBroker* broker, CMPIrc code, const char* message) {
    return broker == nullptr || message == nullptr ? CMReturn(code) : CMReturnWithChars(broker, code, message);
}

// The elements of an array argument.
inline CMPICount array_size(const CMPIArray* array) {
    return array == nullptr ? 0 : CMGetArrayCount(array, nullptr);
}

// An element's text, or null if it has none.
inline const char* element_text(const CMPIArray* array, CMPICount index) {
    CMPIStatus status{CMPI_RC_OK, nullptr};
    const CMPIData element = CMGetArrayElementAt(array, index, &status);
    return status.rc == CMPI_RC_OK ? text_of(element) : nullptr;
}

}  // namespace oxr
