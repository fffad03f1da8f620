// What a provider is handed belongs to the request that it serves: every object made through the broker's
// tables is freed when the request ends. Clones are the provider's own until it releases them.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "cimserver/broker/entry.h"

namespace cimserver {

class BrokerObject {
public:
    BrokerObject();
    BrokerObject(const BrokerObject&) : BrokerObject() {}  // is no clone until it is called one
    virtual ~BrokerObject();
    BrokerObject& operator=(const BrokerObject&) = delete;

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
    std::vector<std::unique_ptr<BrokerObject>> objects_;
};

// A new object of the calling thread's request. Refuses on a thread without one.
template <typename Made, typename... Arguments>
Made* make_object(Arguments&&... arguments) {
    Request* const request = Request::current();
    if (request == nullptr) {
        throw EntryRefusal{CMPI_RC_ERR_INVALID_HANDLE};
    }
    return request->make<Made>(std::forward<Arguments>(arguments)...);
}

}  // namespace cimserver
