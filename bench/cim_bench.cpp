// CIM operations of the shipped library through a broker in this process, and a renewal without its waits.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>

#include "bench/measure.h"
#include "cimserver/broker/broker.h"
#include "cimserver/server.h"

namespace {

using cimserver::Broker;
using cimserver::ObjectPath;
using cimserver::ProviderAnswer;

constexpr char service_class[] = "OSTREL_ConnectionService";
constexpr char setting_class[] = "OSTREL_ConnectionServiceSetting";
constexpr char association_class[] = "OSTREL_ConnectionServiceAssocSetting";

[[noreturn]] void give_up(const std::string& what) {
    std::fprintf(stderr, "cim: %s\n", what.c_str());
    std::abort();
}

// Enumerations tell who they are on standard error, each time.
class QuietErrors {
public:
    QuietErrors() : kept_(dup(STDERR_FILENO)) {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        (void)dup2(nowhere, STDERR_FILENO);
        ::close(nowhere);
    }
    ~QuietErrors() {
        (void)dup2(kept_, STDERR_FILENO);
        ::close(kept_);
    }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;

private:
    int kept_;
};

std::unique_ptr<Broker> make_broker() {
    std::string error;
    auto broker = cimserver::make_broker(dlopen(OXR_LIBRARY, RTLD_NOW | RTLD_LOCAL), "", error);
    if (broker == nullptr) {
        give_up(error);
    }
    return broker;
}

ObjectPath path_of(const char* class_name, const char* name = nullptr) {
    ObjectPath path{{}, "ostrel/cimv2", class_name, {}};
    if (name != nullptr) {
        path.keys.push_back({"name", cimserver::text_value(name)});
    }
    return path;
}

ObjectPath the_service() {
    return path_of(service_class, "OSTREL Connection Service");
}

ObjectPath an_association() {
    ObjectPath path = path_of(association_class);
    path.keys.push_back({"ManagedElement", cimserver::path_value(the_service())});
    path.keys.push_back({"SettingData", cimserver::path_value(path_of(setting_class, "interval"))});
    return path;
}

using Operation = std::function<ProviderAnswer(const Broker&)>;

void cim_operation(benchmark::State& state, const Operation& operate, std::size_t objects) {
    const auto host = bench::make_settled_site(1);
    const QuietErrors quiet;
    host->set_horizon(10);
    const auto broker = make_broker();
    if (!host->wait_for_horizon(10)) {
        give_up("the worker does not come to its sleep");
    }
    for (auto unused : state) {
        (void)unused;
        const ProviderAnswer answer = operate(*broker);
        if (answer.code != CMPI_RC_OK || answer.instances.size() + answer.paths.size() != objects) {
            give_up("an unexpected answer");
        }
    }
}

// What the procedure waits for is what the process slept, by the host's clock; the worker is stopped.
void renewal_of_eight_sessions(benchmark::State& state) {
    simhost::HostOptions options;
    options.clock = simhost::ClockMode::scaled;
    options.factor = 100;
    const auto host = bench::make_settled_site(1, options);
    const QuietErrors quiet;
    const auto broker = make_broker();
    (void)broker->invoke_method(the_service(), "stopservice", {});
    host->remove_file("/etc/ostrel/.lock");
    const cimserver::NamedList arguments = {{"targets", cimserver::text_list({host->iqn_of("vol-0")})},
                                            {"paramname", cimserver::null_value(CMPI_string)},
                                            {"paramvalue", cimserver::null_value(CMPI_string)}};
    double waited = 0;
    for (auto unused : state) {
        (void)unused;
        using Clock = std::chrono::steady_clock;
        const double slept = host->slept();
        const auto begun = Clock::now();
        const ProviderAnswer answer = broker->invoke_method(path_of(setting_class), "renewiscsiconnections", arguments);
        const std::chrono::duration<double> took = Clock::now() - begun;
        const cimserver::CimValue* const status = cimserver::find(answer.out, "oxd_status");
        if (status == nullptr || cimserver::value_text(*status) != "0") {
            give_up("the renewal failed");
        }
        waited = host->slept() - slept;
        state.SetIterationTime(took.count() - waited / options.factor);
        host->write_file(bench::log_file, "");  // far from its rotation
    }
    state.counters["sessions"] = host->totals().sessions;
    state.counters["waits_s"] = waited;  // of the host's clock, not in the time
}

void add(const char* name, std::size_t objects, Operation operate) {
    benchmark::RegisterBenchmark((std::string("cim/") + name).c_str(), cim_operation, std::move(operate), objects)
        ->Unit(benchmark::kMicrosecond);
}

void add_class(const char* class_name, std::size_t objects, const ObjectPath& one) {
    const ObjectPath path = path_of(class_name);
    add((std::string("EnumInstances/") + class_name).c_str(), objects,
        [path](const Broker& broker) { return broker.enumerate_instances(path, {}); });
    add((std::string("EnumInstanceNames/") + class_name).c_str(), objects,
        [path](const Broker& broker) { return broker.enumerate_instance_names(path); });
    add((std::string("GetInstance/") + class_name).c_str(), 1,
        [one](const Broker& broker) { return broker.get_instance(one, {}); });
}

const bool added = [] {
    add_class(service_class, 1, the_service());
    add_class(setting_class, 2, path_of(setting_class, "interval"));
    add_class(association_class, 2, an_association());
    const ObjectPath from = the_service();
    add("Associators", 2, [from](const Broker& broker) { return broker.associators(from, {}, {}); });
    add("AssociatorNames", 2, [from](const Broker& broker) { return broker.associator_names(from, {}); });
    add("References", 2, [from](const Broker& broker) { return broker.references(from, {}, {}); });
    add("ReferenceNames", 2, [from](const Broker& broker) { return broker.reference_names(from, {}); });
    return true;
}();

}  // namespace

BENCHMARK(renewal_of_eight_sessions)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(1.0 / 64);
