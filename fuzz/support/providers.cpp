#include "support/providers.h"

#include <unistd.h>

#include <cstring>
#include <utility>

#include "OstrelAssocProvider/association_class.h"
#include "OstrelProvider/config.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/service_class.h"
#include "OstrelProvider/worker.h"
#include "OstrelProviderSetting/setting_class.h"
#include "OstrelRegisteredProfileProvider/profile_provider.h"
#include "cimserver/broker/request.h"
#include "cimserver/mof/reader.h"
#include "configuration/config_text.h"
#include "support/host.h"

namespace fuzz {

namespace {

template <typename Factory>
void* address_of(Factory* factory) {
    return reinterpret_cast<void*>(factory);
}

void* find_factory(const std::string& symbol) {
    const std::pair<const char*, void*> factories[] = {
        {"OstrelProvider_Create_InstanceMI", address_of(OstrelProvider_Create_InstanceMI)},
        {"OstrelProvider_Create_MethodMI", address_of(OstrelProvider_Create_MethodMI)},
        {"OstrelProviderSetting_Create_InstanceMI", address_of(OstrelProviderSetting_Create_InstanceMI)},
        {"OstrelProviderSetting_Create_MethodMI", address_of(OstrelProviderSetting_Create_MethodMI)},
        {"OstrelAssocProvider_Create_InstanceMI", address_of(OstrelAssocProvider_Create_InstanceMI)},
        {"OstrelAssocProvider_Create_AssociationMI", address_of(OstrelAssocProvider_Create_AssociationMI)},
        {"OstrelProfileProvider_Create_InstanceMI", address_of(OstrelProfileProvider_Create_InstanceMI)},
    };
    for (const auto& [name, factory] : factories) {
        if (symbol == name) {
            return factory;
        }
    }
    return nullptr;
}

cimserver::Schema read_schema() {
    cimserver::Schema schema;
    std::string error;
    for (const char* const file : {"/cim_schema_minimal.mof", "/ostrel.mof"}) {
        require(cimserver::read_mof_file(std::string(OXR_CIM_FOLDER) + file, schema, error), "class definitions",
                error);
    }
    return schema;
}

void forbid_threads(simhost::Host& host) {
    simhost::Fault fault;
    fault.operation = "pthread_create";
    fault.persistent = true;
    host.fail(fault);
}

// The text without the values of its keys.
std::string frame_of(std::string_view text) {
    std::string frame;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        frame += line.starts_with('#') ? line : line.substr(0, line.find('='));
        frame += text.size() == line.size() ? "" : "\n";
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return frame;
}

std::string frame_of_form(ConfigForm form) {
    char text[CONFIG_TEXT_SIZE];
    return frame_of({text, compose_config(text, form, ConfigValues())});
}

}  // namespace

std::string_view config_of(unsigned number) {
    static const std::string_view configs[] = {
        "# \nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\n",
        "# \nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\nworker_stop=1\n",
        "# \nuse_ostrel_timeouts=1\nostrel_logs_path=/var/log/ostrel\nlog_level=2\nmax_vol_sessions=16\n",
        "",
        "interval:300\nvol_sessions:4\n",
    };
    return configs[number < std::size(configs) ? number : 0];
}

Providers& Providers::get() {
    static Providers& made = *new Providers;  // its cleanups need a host, which is gone at the end
    return made;
}

Providers::Providers() : broker_(read_schema()) {
    std::vector<cimserver::Registration> registrations;
    std::string error;
    require(cimserver::read_registration_file(std::string(OXR_CIM_FOLDER) + "/ostrelprovider.sections.reg",
                                              registrations, error),
            "registrations", error);
    Site& site = begin(config_of(0), false);
    require(broker_.load(registrations, find_factory, error), "providers", error);
    set_log_filename("");
    site.finish();
}

Site& Providers::begin(std::string_view config, bool threads) {
    site_ = &Site::of(0);
    config_ = config;
    put_file(site_->host().path(OSTREL_CONFIG_FILE), config_);
    if (!threads) {
        forbid_threads(site_->host());
    }
    return *site_;
}

void Providers::finish() {
    simhost::Host& host = site_->host();
    host.clear_faults();
    if (oxr_thread.load() != 0) {
        require(StopService() == 0, "the worker isn't stopped");
        host.remove_file(OSTREL_LOCK_FILE);  // a worker that is stopped in a pass leaves it
        host.remove_file("/var/log/ostrel/oxr.log");
    }
    set_log_filename("");
    require(cimserver::live_objects() == 0, "an object of a request lives on");
    require_whole_config();
    site_->finish();
}

void Providers::require_whole_config() const {
    static const std::string created = frame_of_form(ConfigForm::created);
    static const std::string rewritten = frame_of_form(ConfigForm::rewritten);
    const std::string text = site_->host().read_file(OSTREL_CONFIG_FILE);
    if (text != config_) {
        const std::string frame = frame_of(text);
        require(frame == created || frame == rewritten, "the configuration file isn't whole", text);
    }
}

}  // namespace fuzz
