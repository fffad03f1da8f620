#include "cimserver/broker/broker.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "cimserver/broker/objects.h"
#include "cimserver/broker/tables.h"

namespace cimserver {

namespace {

// A property list as the tables take it: ended by a null pointer, null itself for "all".
class PropertyNames {
public:
    explicit PropertyNames(const PropertyList& list) {
        if (list) {
            for (const std::string& name : *list) {
                names_.push_back(name.c_str());
            }
            names_.push_back(nullptr);
        }
    }
    const char** get() { return names_.empty() ? nullptr : names_.data(); }

private:
    std::vector<const char*> names_;
};

CMPIContext* new_context(const std::string& name_space) {
    NamedList entries;
    set(entries, CMPIInvocationFlags, uint32_value(CMPI_FLAG_DeepInheritance));
    set(entries, CMPIInitNameSpace, text_value(name_space));
    return make_object<ContextObject>(std::move(entries));
}

// One call of a provider: its context, its path, what it returns.
struct ProviderCall {
    CMPIContext* context;
    CMPIObjectPath* path;
    ResultObject* result;

    explicit ProviderCall(const ObjectPath& path_in)
        : context(new_context(path_in.name_space)),
          path(make_object<PathObject>(path_in)),
          result(make_object<ResultObject>()) {}

    void take(const CMPIStatus& status, ProviderAnswer& answer) const {
        answer.code = status.rc;
        answer.message = status.msg == nullptr ? std::string() : object(status.msg).text;
        for (const CimValue& value : result->values) {
            if (const ObjectPath* const made = reference_in(value)) {
                answer.paths.push_back(*made);
            } else if (const auto* const instance = std::get_if<std::shared_ptr<const Instance>>(&value.data)) {
                answer.instances.push_back(**instance);
            } else {
                answer.return_value = value;
            }
        }
    }
};

const char* or_null(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

}  // namespace

Broker::Broker(Schema schema)
    : schema_(std::move(schema)), handle_{this, &broker_table, &factory_table, nullptr, nullptr} {}

Broker::~Broker() {
    clean_up();
}

// Null with `error` when the factory is missing or fails.
template <typename Mi>
bool Broker::create(Mi*& mi, const std::string& symbol, const FindSymbol& find_symbol, std::string& error) {
    using Factory = Mi* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);
    const auto factory = reinterpret_cast<Factory>(find_symbol(symbol));
    if (factory == nullptr) {
        error = symbol + " is not in the library";
        return false;
    }
    CMPIStatus status{CMPI_RC_OK, nullptr};
    mi = factory(&handle_, new_context(std::string()), &status);
    if (mi == nullptr || mi->ft == nullptr) {
        error = symbol + " failed with status " + std::to_string(status.rc);
        return false;
    }
    cleanups_.emplace_back([mi](const CMPIContext* context) { return mi->ft->cleanup(mi, context, 1); });
    return true;
}

bool Broker::load_class(const Registration& registration, const FindSymbol& find_symbol, std::string& error) {
    if (schema_.find(registration.class_name) == nullptr) {
        error = "class " + registration.class_name + " is registered but not defined";
        return false;
    }
    Loaded& entry = loaded_.emplace_back();
    entry.registration = registration;
    const std::string prefix = registration.provider + "_Create_";
    return (!registration.instance || create(entry.instance, prefix + "InstanceMI", find_symbol, error)) &&
           (!registration.association || create(entry.association, prefix + "AssociationMI", find_symbol, error)) &&
           (!registration.method || create(entry.method, prefix + "MethodMI", find_symbol, error));
}

bool Broker::load(const std::vector<Registration>& registrations, const FindSymbol& find_symbol, std::string& error) {
    const Request request;
    for (const Registration& registration : registrations) {
        if (!load_class(registration, find_symbol, error)) {
            clean_up();
            return false;
        }
    }
    return true;
}

void Broker::clean_up() {
    const std::vector<Cleanup> cleanups = std::exchange(cleanups_, {});
    for (const Cleanup& cleanup : cleanups) {
        std::thread([&cleanup] {
            const Request request;
            (void)cleanup(new_context(std::string()));  // nothing is unloaded here, whatever it asks for
        }).join();
    }
    loaded_.clear();
}

bool Broker::has_name_space(std::string_view name) const {
    return std::any_of(loaded_.begin(), loaded_.end(),
                       [&](const Loaded& entry) { return same_name(entry.registration.name_space, name); });
}

template <typename Applies, typename Operate>
ProviderAnswer Broker::ask(const ObjectPath& path, Applies applies, Operate operate) const {
    const Request request;
    ProviderAnswer answer;
    for (const Loaded& entry : loaded_) {
        if (answer.code == CMPI_RC_OK && same_name(entry.registration.name_space, path.name_space) && applies(entry)) {
            const ProviderCall call(path);
            call.take(operate(entry, call), answer);
        }
    }
    return answer;
}

// --- instances ----------------------------------------------------------------------------------------------

// Each provider is asked for the class that it is registered for.
template <typename Operate>
ProviderAnswer Broker::enumerate(const ObjectPath& path, Operate operate) const {
    return ask(
        path,
        [&](const Loaded& entry) {
            return entry.instance != nullptr && schema_.is_a(entry.registration.class_name, path.class_name);
        },
        [&](const Loaded& entry, const ProviderCall& call) {
            object(call.path).path.class_name = schema_.find(entry.registration.class_name)->name;
            return operate(entry.instance, call);
        });
}

ProviderAnswer Broker::enumerate_instance_names(const ObjectPath& path) const {
    return enumerate(path, [](CMPIInstanceMI* mi, const ProviderCall& call) {
        return mi->ft->enumerateInstanceNames(mi, call.context, call.result, call.path);
    });
}

ProviderAnswer Broker::enumerate_instances(const ObjectPath& path, const PropertyList& properties) const {
    PropertyNames names(properties);
    return enumerate(path, [&](CMPIInstanceMI* mi, const ProviderCall& call) {
        return mi->ft->enumerateInstances(mi, call.context, call.result, call.path, names.get());
    });
}

ProviderAnswer Broker::get_instance(const ObjectPath& path, const PropertyList& properties) const {
    PropertyNames names(properties);
    ProviderAnswer answer = ask(
        path,
        [&](const Loaded& entry) {
            return entry.instance != nullptr && same_name(entry.registration.class_name, path.class_name);
        },
        [&](const Loaded& entry, const ProviderCall& call) {
            return entry.instance->ft->getInstance(entry.instance, call.context, call.result, call.path, names.get());
        });
    if (answer.code == CMPI_RC_OK && answer.instances.empty()) {
        answer.code = CMPI_RC_ERR_NOT_FOUND;
    }
    return answer;
}

// --- associations -------------------------------------------------------------------------------------------

template <typename Operate>
ProviderAnswer Broker::associate(const ObjectPath& path, const std::string& assoc_class, Operate operate) const {
    const bool any_class = assoc_class.empty() || schema_.find(assoc_class) == nullptr;
    return ask(
        path,
        [&](const Loaded& entry) {
            return entry.association != nullptr &&
                   (any_class || schema_.is_a(entry.registration.class_name, assoc_class));
        },
        [&](const Loaded& entry, const ProviderCall& call) { return operate(entry.association, call); });
}

ProviderAnswer Broker::associators(const ObjectPath& path, const AssociationFilter& filter,
                                   const PropertyList& properties) const {
    PropertyNames names(properties);
    return associate(path, filter.assoc_class, [&](CMPIAssociationMI* mi, const ProviderCall& call) {
        return mi->ft->associators(mi, call.context, call.result, call.path, or_null(filter.assoc_class),
                                   or_null(filter.result_class), or_null(filter.role), or_null(filter.result_role),
                                   names.get());
    });
}

ProviderAnswer Broker::associator_names(const ObjectPath& path, const AssociationFilter& filter) const {
    return associate(path, filter.assoc_class, [&](CMPIAssociationMI* mi, const ProviderCall& call) {
        return mi->ft->associatorNames(mi, call.context, call.result, call.path, or_null(filter.assoc_class),
                                       or_null(filter.result_class), or_null(filter.role), or_null(filter.result_role));
    });
}

// Of a reference, the result class is the association's.
ProviderAnswer Broker::references(const ObjectPath& path, const AssociationFilter& filter,
                                  const PropertyList& properties) const {
    PropertyNames names(properties);
    return associate(path, filter.result_class, [&](CMPIAssociationMI* mi, const ProviderCall& call) {
        return mi->ft->references(mi, call.context, call.result, call.path, or_null(filter.result_class),
                                  or_null(filter.role), names.get());
    });
}

ProviderAnswer Broker::reference_names(const ObjectPath& path, const AssociationFilter& filter) const {
    return associate(path, filter.result_class, [&](CMPIAssociationMI* mi, const ProviderCall& call) {
        return mi->ft->referenceNames(mi, call.context, call.result, call.path, or_null(filter.result_class),
                                      or_null(filter.role));
    });
}

// --- methods ------------------------------------------------------------------------------------------------

ProviderAnswer Broker::invoke_method(const ObjectPath& path, const std::string& method, const NamedList& in) const {
    bool found = false;
    NamedList out;
    ProviderAnswer answer = ask(
        path,
        [&](const Loaded& entry) {
            return !found && entry.method != nullptr && same_name(entry.registration.class_name, path.class_name);
        },
        [&](const Loaded& entry, const ProviderCall& call) {
            found = true;
            auto* const args = make_object<ArgsObject>(NamedList());
            const CMPIStatus status = entry.method->ft->invokeMethod(entry.method, call.context, call.result, call.path,
                                                                     method.c_str(), make_object<ArgsObject>(in), args);
            out = args->args;
            return status;
        });
    answer.out = std::move(out);
    if (!found) {
        answer.code = CMPI_RC_ERR_METHOD_NOT_AVAILABLE;
    }
    return answer;
}

}  // namespace cimserver
