// An IMA list that releases itself.
#pragma once

#include <cstdint>

#include "ima/ima.h"

class ImaList {
public:
    // Module and operation for the warning about a list that could not be released.
    ImaList(const char* module, const char* function) : module_(module), function_(function) {}
    ~ImaList() { release(); }
    ImaList(const ImaList&) = delete;
    ImaList& operator=(const ImaList&) = delete;

    // Pass this to an IMA call that stores a list; a list held before is released.
    IMA_OID_LIST** out(int line = __builtin_LINE()) {
        release();
        line_ = line;
        return &list_;
    }

    bool empty() const { return list_ == nullptr || list_->oidCount == 0; }
    std::uint64_t size() const { return list_ == nullptr ? 0 : list_->oidCount; }
    const IMA_OID& operator[](std::uint64_t i) const { return list_->oids[i]; }
    const IMA_OID* begin() const { return list_ == nullptr ? nullptr : list_->oids; }
    const IMA_OID* end() const { return list_ == nullptr ? nullptr : list_->oids + list_->oidCount; }

private:
    void release();

    const char* module_;
    const char* function_;
    int line_ = 0;  // of the call that the list came from
    IMA_OID_LIST* list_ = nullptr;
};
