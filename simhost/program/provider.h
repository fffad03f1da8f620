// Loads the connection manager's shared library and runs it through its factory, as a CIM server does.
#pragma once

#include <string>

namespace program {

class Provider {
public:
    Provider() = default;
    ~Provider() { stop(); }
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    // Loads `library`; an empty name: libostrelprovider.so.1 by the loader's rules (this program's own folder
    // first). False: `error` says why.
    bool load(const std::string& library, std::string& error);

    // Calls the factory, which starts the worker. False: `error` says why.
    bool start(std::string& error);

    // The provider's cleanup, which stops the worker and waits for its end. Does nothing when not started.
    void stop();

private:
    void* library_ = nullptr;
    void* instance_ = nullptr;
};

}  // namespace program
