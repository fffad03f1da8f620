#include "provider.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "cimserver/server.h"
#include "cmpi/cmpi.h"

namespace ostrel_simhost {

namespace {

constexpr char LIBRARY_NAME[] = "libostrelprovider.so.1";
constexpr const char* PLACES[] = {".", "../lib", "../../src"};  // from this program's folder; the last when built
constexpr char FACTORY_NAME[] = "OstrelProvider_Create_InstanceMI";

using Factory = CMPIInstanceMI* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);

}  // namespace

Provider::Provider() = default;

Provider::~Provider() {
    stop();
}

bool Provider::load(const std::string& library, std::string& error) {
    constexpr int flags = RTLD_NOW | RTLD_LOCAL;
    library_ = dlopen(library.empty() ? LIBRARY_NAME : library.c_str(), flags);
    if (library_ != nullptr) {
        return true;
    }
    error = dlerror();
    if (!library.empty()) {
        return false;
    }
    // A sanitizer calls the loader in this program's place, and the loader then doesn't follow its run path.
    std::error_code ignored;
    const auto folder = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const char* place : PLACES) {
        const auto file = folder / place / LIBRARY_NAME;
        if (std::filesystem::exists(file, ignored)) {
            library_ = dlopen(file.c_str(), flags);
            error = library_ == nullptr ? dlerror() : "";
            return library_ != nullptr;
        }
    }
    return false;
}

bool Provider::start(std::string& error) {
    const auto factory = reinterpret_cast<Factory>(dlsym(library_, FACTORY_NAME));
    if (factory == nullptr) {
        error = dlerror();
        return false;
    }
    instance_ = factory(nullptr, nullptr, nullptr);
    if (instance_ == nullptr) {
        error = fmt::format("{} returned nothing", FACTORY_NAME);
        return false;
    }
    return true;
}

bool Provider::serve(const std::string& address, std::string& error) {
    cimserver::ServerOptions options;
    options.library = library_;
    if (!cimserver::parse_address(address, options)) {
        error = fmt::format("\"{}\" is no ADDRESS:PORT", address);
        return false;
    }
    server_ = std::make_unique<cimserver::Server>(options);
    return server_->start(error);
}

void Provider::stop() {
    if (server_ != nullptr) {
        server_->stop();
    }
    // The library stays loaded: what it left behind can still be looked at, and the process ends soon.
    if (auto* instance = static_cast<CMPIInstanceMI*>(std::exchange(instance_, nullptr))) {
        (void)instance->ft->cleanup(instance, nullptr, 1);
    }
}

}  // namespace ostrel_simhost
