#include "cimserver/server.h"

#include <dlfcn.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <utility>

#include "cimserver/broker/broker.h"
#include "cimserver/cimxml/answer.h"
#include "cimserver/http/endpoint.h"
#include "cimserver/mof/reader.h"
#include "cimserver/registration.h"

namespace cimserver {

namespace {

constexpr const char* MOF_FILES[] = {"cim_schema_minimal.mof", "ostrel.mof"};
constexpr char REGISTRATION_FILE[] = "ostrelprovider.sections.reg";

bool is_ipv6(const std::string& address) {
    return address.find(':') != std::string::npos;
}

}  // namespace

std::string find_cim_folder() {
    std::error_code ignored;
    const auto own_folder = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const std::filesystem::path& folder :
         {own_folder / "../share/ostrel/cim", std::filesystem::path(OXR_CIM_FOLDER)}) {
        if (std::filesystem::is_regular_file(folder / REGISTRATION_FILE, ignored)) {
            return folder.lexically_normal().string();
        }
    }
    return {};
}

std::unique_ptr<Broker> make_broker(void* library, const std::string& cim_folder, std::string& error) {
    const std::string folder = cim_folder.empty() ? find_cim_folder() : cim_folder;
    if (folder.empty()) {
        error = "the folder of the class definitions is not there";
        return nullptr;
    }
    Schema schema;
    for (const char* const file : MOF_FILES) {
        if (!read_mof_file(folder + "/" + file, schema, error)) {
            return nullptr;
        }
    }
    std::vector<Registration> registrations;
    if (!read_registration_file(folder + "/" + REGISTRATION_FILE, registrations, error)) {
        return nullptr;
    }
    auto broker = std::make_unique<Broker>(std::move(schema));
    const auto find_symbol = [library](const std::string& symbol) { return dlsym(library, symbol.c_str()); };
    if (!broker->load(registrations, find_symbol, error)) {
        return nullptr;
    }
    return broker;
}

Server::Server(ServerOptions options) : options_(std::move(options)) {}

Server::~Server() {
    stop();
}

bool Server::start(std::string& error) {
    if (broker_ != nullptr) {
        error = "it is started already";
        return false;
    }
    if (options_.library == nullptr) {
        options_.library = dlopen(options_.library_path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (options_.library == nullptr) {
            const char* const reason = dlerror();
            error = reason != nullptr ? reason : options_.library_path + " can't be loaded";
            return false;
        }
    }
    endpoint_ = std::make_unique<Endpoint>(
        [this](const std::string& body) { return answer_cim_xml(*broker_, body, "localhost"); });
    broker_ = make_broker(options_.library, options_.cim_folder, error);
    if (broker_ == nullptr || !endpoint_->start(options_.address, options_.port, error)) {
        stop();
        return false;
    }
    return true;
}

void Server::stop() {
    if (endpoint_ != nullptr) {
        endpoint_->stop();
    }
    if (broker_ != nullptr) {
        broker_->clean_up();
    }
    endpoint_.reset();
    broker_.reset();
}

std::uint16_t Server::port() const {
    return endpoint_ == nullptr ? options_.port : endpoint_->port();
}

std::string Server::url() const {
    const std::string& address = options_.address;
    return "http://" + (is_ipv6(address) ? "[" + address + "]" : address) + ":" + std::to_string(port());
}

std::vector<std::string> Server::example_commands() const {
    const std::string name_space = url() + "/ostrel/cimv2:";
    return {
        "wbemcli ei '" + name_space + "OSTREL_ConnectionService'",
        "wbemcli ei '" + name_space + "OSTREL_ConnectionServiceSetting'",
        "wbemcli cmx '" + name_space + "OSTREL_ConnectionServiceSetting' 'setvalue.name=\"interval\",value=300'",
        "wbemcli cmx '" + name_space + "OSTREL_ConnectionService' StopService",
        "wbemcli cmx '" + name_space + "OSTREL_ConnectionService' StartService",
    };
}

bool parse_address(std::string_view text, ServerOptions& options) {
    std::string_view address = text;
    std::string_view port;
    if (text.starts_with('[')) {
        const std::size_t end = text.find(']');
        if (end == std::string_view::npos) {
            return false;
        }
        address = text.substr(1, end - 1);
        port = text.substr(end + 1);
    } else if (std::count(text.begin(), text.end(), ':') == 1) {  // more are an IPv6 address alone
        address = text.substr(0, text.find(':'));
        port = text.substr(address.size());
    }
    if (!port.empty()) {
        const char* const end = text.data() + text.size();
        std::uint16_t number = 0;
        const auto [read_to, error] = std::from_chars(port.data() + 1, end, number);
        if (port.front() != ':' || error != std::errc() || read_to != end) {
            return false;
        }
        options.port = number;
    }
    if (!address.empty()) {
        options.address = address;
    }
    return true;
}

}  // namespace cimserver
