// The HTTP side: takes POST requests on one address and port, each on a thread of its own, and answers each
// with what the handler makes of its body. One request a connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "cimserver/cimxml/answer.h"

struct MHD_Daemon;

namespace cimserver {

inline constexpr std::size_t MAX_BODY_BYTES = 4U << 20;
inline constexpr unsigned MAX_CONNECTIONS = 64;
inline constexpr unsigned IDLE_SECONDS = 30;    // without a byte, while a request is read
inline constexpr double MAX_READ_SECONDS = 60;  // for a whole request

class Endpoint {
public:
    using Handler = std::function<HttpAnswer(const std::string& body)>;

    explicit Endpoint(Handler handler) : handler_(std::move(handler)) {}
    ~Endpoint() { stop(); }
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    // `address`: IPv4 or IPv6 in numbers. Port 0: a free one. False: `error` says why.
    bool start(const std::string& address, std::uint16_t port, std::string& error);

    // Waits for requests under way.
    void stop();

    std::uint16_t port() const { return port_; }
    const Handler& handler() const { return handler_; }

private:
    Handler handler_;
    MHD_Daemon* daemon_ = nullptr;
    std::uint16_t port_ = 0;
};

}  // namespace cimserver
