// Answers of the IMA for Host::script_ima().
#pragma once

#include <cstdint>
#include <utility>

#include "ima/ima.h"

namespace testing_support {

inline std::uint32_t ima_failure(void*, std::uint32_t) {
    return 0x80000004U;
}

inline std::uint32_t empty_list(void* out, std::uint32_t status) {
    (*static_cast<IMA_OID_LIST**>(out))->oidCount = 0;
    return status;
}

inline std::uint32_t no_list(void* out, std::uint32_t status) {
    IMA_FreeMemory(std::exchange(*static_cast<IMA_OID_LIST**>(out), nullptr));
    return status;
}

}  // namespace testing_support
