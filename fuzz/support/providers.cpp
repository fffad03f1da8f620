#include "support/providers.h"

#include <dlfcn.h>

#include "OstrelProvider/config.h"
#include "OstrelProvider/service.h"
#include "OstrelProvider/worker.h"
#include "cimserver/broker/request.h"
#include "cimserver/server.h"
#include "configuration/config_text.h"
#include "support/host.h"
#include "tests/support/faults.h"

using testing_support::failing;
using testing_support::lasting;

namespace fuzz {

namespace {

// The text of the configuration file with these values.
std::string composed(ConfigForm form, const ConfigValues& values) {
    char text[CONFIG_TEXT_SIZE];
    return {text, compose_config(text, form, values)};
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

Providers::Providers() {
    FuzzedSite& site = begin(config_of(0), false);
    std::string error;
    broker_ = cimserver::make_broker(RTLD_DEFAULT, OXR_CIM_FOLDER, error);
    require(broker_ != nullptr, "providers", error);
    set_log_filename("");
    site.finish();
}

FuzzedSite& Providers::begin(std::string_view config, bool threads) {
    site_ = &FuzzedSite::of(0);
    config_ = config;
    site_->host().write_file(OSTREL_CONFIG_FILE, config_);
    if (!threads) {
        site_->host().fail(lasting(failing("pthread_create")));
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

// As it was, or as it is written with the values that are read from it.
void Providers::require_whole_config() const {
    const std::string text = site_->host().read_file(OSTREL_CONFIG_FILE);
    if (text == config_) {
        return;
    }
    ConfigValues values;
    const oxr::MutexLock lock(config_file_mutex);
    require(OSTREL_GetConfigValues(&values, CONFIG_NORMAL) == 0 &&
                (text == composed(ConfigForm::created, values) || text == composed(ConfigForm::rewritten, values)),
            "the configuration file isn't whole", text);
}

}  // namespace fuzz
