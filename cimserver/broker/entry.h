// Entries of CMPI's tables from plain functions: what a function throws becomes the entry's status.
#pragma once

#include <tuple>
#include <type_traits>

#include "cmpi/cmpi.h"

namespace cimserver {

// Thrown inside the broker only, where an entry refuses what it was given.
struct EntryRefusal {
    CMPIrc code;
};

inline void put(CMPIStatus* status, CMPIrc code) {
    if (status != nullptr) {
        *status = {code, nullptr};
    }
}

// What an entry answers beside a status that isn't OK.
template <typename Answer>
inline constexpr Answer nothing{};
template <>
inline constexpr CMPIData nothing<CMPIData>{CMPI_null, CMPI_notFound, {}};

template <typename Body>
CMPIrc code_of(Body body) noexcept {
    try {
        body();
        return CMPI_RC_OK;
    } catch (const EntryRefusal& refusal) {
        return refusal.code;
    } catch (...) {
        return CMPI_RC_ERROR_SYSTEM;
    }
}

template <auto function, typename Type = decltype(function)>
struct Entry;

// Of a function that answers something: the entry has an out-parameter for the status.
template <auto function, typename Answer, typename... Arguments>
struct Entry<function, Answer (*)(Arguments...)> {
    static Answer call(Arguments... arguments, CMPIStatus* status) noexcept {
        Answer answer = nothing<Answer>;
        put(status, code_of([&] { answer = function(arguments...); }));
        return answer;
    }
};

// Of a function that answers nothing: the entry returns the status.
template <auto function, typename... Arguments>
struct Entry<function, void (*)(Arguments...)> {
    static CMPIStatus call(Arguments... arguments) noexcept {
        return {code_of([&] { function(arguments...); }), nullptr};
    }
};

template <auto function>
inline constexpr auto* entry = Entry<function>::call;

// An entry of any type that answers CMPI_RC_ERR_NOT_SUPPORTED.
struct NotSupported {
    template <typename Answer, typename... Arguments>
    using Function = Answer (*)(Arguments...);

    template <typename Answer, typename... Arguments>
    constexpr operator Function<Answer, Arguments...>() const {
        return [](Arguments... arguments) -> Answer {
            if constexpr (std::is_same_v<Answer, CMPIStatus>) {
                return {CMPI_RC_ERR_NOT_SUPPORTED, nullptr};
            } else {
                put(std::get<sizeof...(arguments) - 1>(std::tie(arguments...)), CMPI_RC_ERR_NOT_SUPPORTED);
                return nothing<Answer>;
            }
        };
    }
};
inline constexpr NotSupported not_supported;

}  // namespace cimserver
