// Loads the connection manager's shared library and runs it through its factory, as a CIM server does.
#pragma once

#include <memory>
#include <string>

namespace cimserver {
class Server;
}

namespace ostrel_simhost {

class Provider {
public:
    Provider();
    ~Provider();
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    // Loads `library`; an empty name: libostrelprovider.so.1 by the loader's rules (this program's own folder
    // first). False: `error` says why.
    bool load(const std::string& library, std::string& error);

    // Calls the factory, which starts the worker. False: `error` says why.
    bool start(std::string& error);

    // Puts a CIM server in front, which calls all factories and serves at "ADDRESS:PORT" (parts may be left
    // out). False: `error` says why.
    bool serve(const std::string& address, std::string& error);
    const cimserver::Server* server() const { return server_.get(); }  // null when none serves

    // The provider's cleanup, which stops the worker and waits for its end. Does nothing when not started.
    void stop();

private:
    void* library_ = nullptr;
    void* instance_ = nullptr;
    std::unique_ptr<cimserver::Server> server_;
};

}  // namespace ostrel_simhost
