// Heap allocation that returns null instead of throwing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace oxr {

// One zeroed T, or null.
template <typename T>
std::unique_ptr<T> make_zeroed() {
    return std::unique_ptr<T>(new (std::nothrow) T());
}

// `count` T with undefined content, or null: for records that are written before they are read.
template <typename T>
std::unique_ptr<T[]> make_unset_array(std::size_t count) {
    if (count > PTRDIFF_MAX / sizeof(T)) {
        return nullptr;
    }
    return std::unique_ptr<T[]>(new (std::nothrow) T[count]);
}

// `count` zeroed T, or null.
template <typename T>
std::unique_ptr<T[]> make_zeroed_array(std::size_t count) {
    if (count > PTRDIFF_MAX / sizeof(T)) {
        return nullptr;
    }
    return std::unique_ptr<T[]>(new (std::nothrow) T[count]());
}

}  // namespace oxr
