#include "oxd_ima_utility/ima_list.h"

#include "OstrelProvider/log.h"

void ImaList::release() {
    if (list_ == nullptr) {
        return;
    }
    if (IMA_FreeMemory(list_) != IMA_STATUS_SUCCESS) {
        OXR_WARN_OF(module_, function_, "Could not free IMA Memory for function %s at line %d", function_, line_);
    }
    list_ = nullptr;
}
