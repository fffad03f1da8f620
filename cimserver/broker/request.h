// What a provider is handed belongs to the request that it serves: every object made through the broker's
// tables is freed when the request ends. Clones are the provider's own until it releases them.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "cmpi/cmpi.h"

namespace cimserver {

class Object {
public:
    Object();
    virtual ~Object();
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    bool is_clone = false;
};

// Objects of all requests, and clones, that are alive.
long live_objects();

// One request on the calling thread, from its making to its end. Inside another one (an upcall) it is
// the inner one until its end.
class Request {
public:
    Request();
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    // The request of the calling thread, or null.
    static Request* current();

    template <typename Made, typename... Arguments>
    Made* make(Arguments&&... arguments) {
        auto made = std::make_unique<Made>(std::forward<Arguments>(arguments)...);
        Made* const result = made.get();
        objects_.push_back(std::move(made));
        return result;
    }

private:
    Request* outer_;
    std::vector<std::unique_ptr<Object>> objects_;
};

// Thrown inside the broker only, where a table entry refuses what it was given.
struct Refusal {
    CMPIrc code;
};

// A new object of the calling thread's request. Refuses on a thread without one.
template <typename Made, typename... Arguments>
Made* make_object(Arguments&&... arguments) {
    Request* const request = Request::current();
    if (request == nullptr) {
        throw Refusal{CMPI_RC_ERR_INVALID_HANDLE};
    }
    return request->make<Made>(std::forward<Arguments>(arguments)...);
}

inline void put(CMPIStatus* status, CMPIrc code) {
    if (status != nullptr) {
        *status = {code, nullptr};
    }
}

// The body of a table entry with a status out-parameter: nothing thrown leaves it.
template <typename Answer, typename Body>
Answer guarded(CMPIStatus* status, Answer otherwise, Body body) noexcept {
    put(status, CMPI_RC_OK);
    try {
        return body();
    } catch (const Refusal& refusal) {
        put(status, refusal.code);
    } catch (...) {
        put(status, CMPI_RC_ERROR_SYSTEM);
    }
    return otherwise;
}

// The same for an entry that returns a status.
template <typename Body>
CMPIStatus guarded_status(Body body) noexcept {
    CMPIStatus status{CMPI_RC_OK, nullptr};
    (void)guarded(&status, 0, [&] {
        body();
        return 0;
    });
    return status;
}

}  // namespace cimserver
