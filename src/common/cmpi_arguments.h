// Method arguments as a client sent them: any of them may be absent, null or of another type than the class
// definition says.
#pragma once

#include "cmpi/cmpi.h"
#include "common/cmpi_objects.h"

namespace oxr {

// An input argument; CMPI_null and CMPI_notFound when it is absent, whatever the broker left in the answer.
inline CMPIData get_argument(const CMPIArgs* args, const char* name) {
    constexpr CMPIData absent{CMPI_null, CMPI_notFound, {}};
    if (args == nullptr) {
        return absent;
    }
    CMPIStatus status{CMPI_RC_OK, nullptr};
    const CMPIData argument = CMGetArg(args, name, &status);
    return status.rc == CMPI_RC_OK && (argument.state & (CMPI_notFound | CMPI_badValue)) == 0 ? argument : absent;
}

// A status with a message for the client; a null `message`: without one.
inline CMPIStatus status_with_message(const CMPIBroker* broker, CMPIrc code, const char* message) {
    return broker == nullptr || message == nullptr ? CMReturn(code) : CMReturnWithChars(broker, code, message);
}

// The elements of an array argument.
inline CMPICount array_size(const CMPIArray* array) {
    return array == nullptr ? 0 : CMGetArrayCount(array, nullptr);
}

// An element's text, or null when it has none.
inline const char* element_text(const CMPIArray* array, CMPICount index) {
    CMPIStatus status{CMPI_RC_OK, nullptr};
    const CMPIData element = CMGetArrayElementAt(array, index, &status);
    return status.rc == CMPI_RC_OK ? text_of(element) : nullptr;
}

}  // namespace oxr
