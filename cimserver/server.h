// The CIM server in front of the connection manager: providers from its shared library behind a CIM-XML
// endpoint, for WBEM clients. Nobody is asked who they are: it listens on loopback unless told otherwise.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace cimserver {

class Broker;
class Endpoint;

struct ServerOptions {
    std::string address = "127.0.0.1";  // IPv4 or IPv6, in numbers
    std::uint16_t port = 5988;          // 0: a free one, see Server::port()
    void* library = nullptr;            // from dlopen; null: `library_path` is opened, and stays open
    std::string library_path = "libostrelprovider.so.1";
    std::string cim_folder;  // of the MOF and registration files; empty: where they are installed or built from
};

class Server {
public:
    explicit Server(ServerOptions options);
    ~Server();  // stops
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Reads the class definitions and the registration, calls every factory (which starts the service) and
    // listens. False: `error` says why, in one line, and nothing of it is left.
    bool start(std::string& error);

    // Ends listening, waits for requests under way, and calls every cleanup (which stops the service). Does
    // nothing when not started.
    void stop();

    std::uint16_t port() const;                             // of a started server
    std::string url() const;                                // "http://127.0.0.1:5988"
    const Broker* broker() const { return broker_.get(); }  // null when not started

    // Commands for a first look, ready to be typed.
    std::vector<std::string> example_commands() const;

private:
    ServerOptions options_;
    std::unique_ptr<Broker> broker_;
    std::unique_ptr<Endpoint> endpoint_;
};

// "127.0.0.1:5988", "[::1]:5988", an address alone or ":PORT" alone, into the options. False: it is none.
bool parse_address(std::string_view text, ServerOptions& options);

// A broker with the providers of a library (from dlopen) and the classes of a folder; for tests and benchmarks,
// without an endpoint. Null: `error` says why.
std::unique_ptr<Broker> make_broker(void* library, const std::string& cim_folder, std::string& error);

// The folder of the MOF and registration files; empty when there is none.
std::string find_cim_folder();

}  // namespace cimserver
