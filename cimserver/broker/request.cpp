#include "cimserver/broker/request.h"

#include <atomic>

namespace cimserver {

namespace {

std::atomic<long> live{0};
thread_local Request* current_request = nullptr;

}  // namespace

BrokerObject::BrokerObject() {
    ++live;
}

BrokerObject::~BrokerObject() {
    --live;
}

long live_objects() {
    return live;
}

Request::Request() : outer_(std::exchange(current_request, this)) {}

Request::~Request() {
    current_request = outer_;
}

Request* Request::current() {
    return current_request;
}

}  // namespace cimserver
