#include "cimserver/http/endpoint.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace cimserver {

namespace {

using Clock = std::chrono::steady_clock;

// One request while its body arrives.
struct Incoming {
    std::string body;
    Clock::time_point begun = Clock::now();
    int refused = 0;  // HTTP status
};

MHD_Result respond(MHD_Connection* connection, int status, const std::string& body, const char* type,
                   std::initializer_list<std::pair<const char*, std::string>> headers) {
    MHD_Response* const response =
        MHD_create_response_from_buffer(body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
        return MHD_NO;
    }
    (void)MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type);
    (void)MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
    for (const auto& [name, value] : headers) {
        if (!value.empty()) {
            (void)MHD_add_response_header(response, name, value.c_str());
        }
    }
    const MHD_Result queued = MHD_queue_response(connection, static_cast<unsigned>(status), response);
    MHD_destroy_response(response);
    return queued;
}

MHD_Result refuse(MHD_Connection* connection, int status) {
    const std::string text = status == MHD_HTTP_METHOD_NOT_ALLOWED
                                 ? "This is a CIM-XML endpoint: it takes POST to /cimom, as WBEM clients send it.\n"
                             : status == MHD_HTTP_NOT_FOUND         ? "Only /cimom is served.\n"
                             : status == MHD_HTTP_REQUEST_TIMEOUT   ? "The request took too long to arrive.\n"
                             : status == MHD_HTTP_CONTENT_TOO_LARGE ? "The request is larger than 4 MiB.\n"
                                                                    : "The request can't be served.\n";
    return respond(connection, status, text, "text/plain; charset=utf-8",
                   {{MHD_HTTP_HEADER_ALLOW, status == MHD_HTTP_METHOD_NOT_ALLOWED ? "POST" : ""},
                    {"CIMError", status == MHD_HTTP_BAD_REQUEST ? "unsupported-operation" : ""}});
}

// 0, or the status with which a request is refused by its first lines.
int check_head(MHD_Connection* connection, std::string_view url, std::string_view method) {
    if (method != MHD_HTTP_METHOD_POST) {
        return method == "M-POST" ? MHD_HTTP_NOT_IMPLEMENTED : MHD_HTTP_METHOD_NOT_ALLOWED;
    }
    if (url != "/cimom" && url != "/") {
        return MHD_HTTP_NOT_FOUND;
    }
    const char* const length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
    if (length != nullptr && std::strtoull(length, nullptr, 10) > MAX_BODY_BYTES) {
        return MHD_HTTP_CONTENT_TOO_LARGE;
    }
    const char* const operation = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "CIMOperation");
    return operation != nullptr && std::string_view(operation) != "MethodCall" ? MHD_HTTP_BAD_REQUEST : 0;
}

void take_part(Incoming& incoming, std::string_view part) {
    const std::chrono::duration<double> taken = Clock::now() - incoming.begun;
    if (incoming.body.size() + part.size() > MAX_BODY_BYTES) {
        incoming.refused = MHD_HTTP_CONTENT_TOO_LARGE;
    } else if (taken.count() > MAX_READ_SECONDS) {
        incoming.refused = MHD_HTTP_REQUEST_TIMEOUT;
    }
    if (incoming.refused == 0) {
        incoming.body += part;
    }
}

MHD_Result answer(const Endpoint& endpoint, MHD_Connection* connection, const Incoming& incoming) {
    const HttpAnswer made = endpoint.handler()(incoming.body);
    const bool is_xml = made.status == MHD_HTTP_OK;
    return respond(connection, made.status, is_xml ? made.body : made.body + "\n",
                   is_xml ? "application/xml; charset=\"utf-8\"" : "text/plain; charset=utf-8",
                   {{"CIMOperation", is_xml ? "MethodResponse" : ""}, {"CIMError", made.cim_error}});
}

// Called for the head, for each part of the body, and at its end.
MHD_Result on_request(void* data, MHD_Connection* connection, const char* url, const char* method, const char*,
                      const char* part, std::size_t* part_size, void** request) {
    try {
        if (*request == nullptr) {
            auto incoming = std::make_unique<Incoming>();
            incoming->refused = check_head(connection, url, method);
            const int refused = incoming->refused;
            *request = incoming.release();
            return refused == 0 ? MHD_YES : refuse(connection, refused);
        }
        auto& incoming = *static_cast<Incoming*>(*request);
        if (*part_size > 0) {
            take_part(incoming, {part, *part_size});
            *part_size = 0;
            return MHD_YES;
        }
        return incoming.refused != 0 ? refuse(connection, incoming.refused)
                                     : answer(*static_cast<const Endpoint*>(data), connection, incoming);
    } catch (...) {
        return MHD_NO;  // closes the connection
    }
}

void on_completed(void*, MHD_Connection*, void** request, MHD_RequestTerminationCode) {
    delete static_cast<Incoming*>(*request);
    *request = nullptr;
}

// False when the address is none.
bool make_address(const std::string& text, std::uint16_t port, sockaddr_storage& address) {
    address = {};
    auto& v4 = reinterpret_cast<sockaddr_in&>(address);
    if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(port);
        return true;
    }
    auto& v6 = reinterpret_cast<sockaddr_in6&>(address);
    if (inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(port);
        return true;
    }
    return false;
}

}  // namespace

bool Endpoint::start(const std::string& address, std::uint16_t port, std::string& error) {
    sockaddr_storage where{};
    if (!make_address(address, port, where)) {
        error = "\"" + address + "\" is no IP address";
        return false;
    }
    const unsigned flags = MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_POLL |
                           (where.ss_family == AF_INET6 ? static_cast<unsigned>(MHD_USE_IPv6) : 0U);
    errno = 0;
    daemon_ = MHD_start_daemon(flags, port, nullptr, nullptr, on_request, this, MHD_OPTION_SOCK_ADDR, &where,
                               MHD_OPTION_CONNECTION_TIMEOUT, IDLE_SECONDS, MHD_OPTION_CONNECTION_LIMIT,
                               MAX_CONNECTIONS, MHD_OPTION_NOTIFY_COMPLETED, on_completed, nullptr, MHD_OPTION_END);
    if (daemon_ == nullptr) {
        error = address + " port " + std::to_string(port) + ": " + (errno != 0 ? std::strerror(errno) : "can't listen");
        return false;
    }
    const MHD_DaemonInfo* const info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
    port_ = info != nullptr ? info->port : port;
    return true;
}

void Endpoint::stop() {
    if (daemon_ != nullptr) {
        MHD_stop_daemon(std::exchange(daemon_, nullptr));
    }
}

}  // namespace cimserver
