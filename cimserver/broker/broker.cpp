#include "cimserver/broker/broker.h"

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

    void take(const CMPIStatus& status, Answer& answer) const {
        answer.code = status.rc;
        answer.message = status.msg == nullptr ? std::string() : object<StringObject>(status.msg).text;
        for (const Value& value : result->values) {
            if (const auto* const made = std::get_if<std::shared_ptr<const ObjectPath>>(&value.data)) {
                answer.paths.push_back(**made);
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

template <typename Mi>
using Factory = Mi* (*)(const CMPIBroker*, const CMPIContext*, CMPIStatus*);

// Null with `error` when the factory is missing or fails.
template <typename Mi>
Mi* create(const CMPIBroker* broker, const Broker::FindSymbol& find_symbol, const std::string& symbol,
           std::string& error) {
    const auto factory = reinterpret_cast<Factory<Mi>>(find_symbol(symbol));
    if (factory == nullptr) {
        error = symbol + " is not in the library";
        return nullptr;
    }
    CMPIStatus status{CMPI_RC_OK, nullptr};
    Mi* const mi = factory(broker, new_context(std::string()), &status);
    if (mi == nullptr || mi->ft == nullptr) {
        error = symbol + " failed with status " + std::to_string(status.rc);
        return nullptr;
    }
    return mi;
}

template <typename Mi>
auto cleanup_of(Mi* mi) {
    return [mi](const CMPIContext* context) { return mi->ft->cleanup(mi, context, 1); };
}

}  // namespace

Broker::Broker(Schema schema)
    : schema_(std::move(schema)), handle_{this, &broker_table, &factory_table, nullptr, nullptr} {}

Broker::~Broker() {
    clean_up();
}

bool Broker::load_class(const Registration& registration, const FindSymbol& find_symbol, std::string& error) {
    if (schema_.find(registration.class_name) == nullptr) {
        error = "class " + registration.class_name + " is registered but not defined";
        return false;
    }
    Loaded& entry = loaded_.emplace_back();
    entry.registration = registration;
    const std::string prefix = registration.provider + "_Create_";
    if (registration.instance) {
        entry.instance = create<CMPIInstanceMI>(&handle_, find_symbol, prefix + "InstanceMI", error);
        if (entry.instance == nullptr) {
            return false;
        }
        cleanups_.emplace_back(cleanup_of(entry.instance));
    }
    if (registration.association) {
        entry.association = create<CMPIAssociationMI>(&handle_, find_symbol, prefix + "AssociationMI", error);
        if (entry.association == nullptr) {
            return false;
        }
        cleanups_.emplace_back(cleanup_of(entry.association));
    }
    if (registration.method) {
        entry.method = create<CMPIMethodMI>(&handle_, find_symbol, prefix + "MethodMI", error);
        if (entry.method == nullptr) {
            return false;
        }
        cleanups_.emplace_back(cleanup_of(entry.method));
    }
    return true;
}

bool Broker::load(const std::vector<Registration>& registrations, const FindSymbol& find_symbol, std::string& error) {
    const Request request;
    for (const Registration& registration : registrations) {
        if (!load_class(registration, find_symbol, error)) {
            clean_up();
            loaded_.clear();
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
    for (const Loaded& entry : loaded_) {
        if (same_name(entry.registration.name_space, name)) {
            return true;
        }
    }
    return false;
}

const Broker::Loaded* Broker::loaded(const ObjectPath& path, bool Registration::*type) const {
    for (const Loaded& entry : loaded_) {
        if (entry.registration.*type && same_name(entry.registration.class_name, path.class_name) &&
            same_name(entry.registration.name_space, path.name_space)) {
            return &entry;
        }
    }
    return nullptr;
}

template <typename Call>
Answer Broker::enumerate(const ObjectPath& path, Call call) const {
    const Request request;
    Answer answer;
    for (const Loaded& entry : loaded_) {
        if (!entry.registration.instance || !same_name(entry.registration.name_space, path.name_space) ||
            !schema_.is_a(entry.registration.class_name, path.class_name)) {
            continue;
        }
        ObjectPath asked = path;
        asked.class_name = schema_.find(entry.registration.class_name)->name;
        const ProviderCall provider(asked);
        provider.take(call(entry.instance, provider), answer);
        if (answer.code != CMPI_RC_OK) {
            break;
        }
    }
    return answer;
}

Answer Broker::enumerate_instance_names(const ObjectPath& path) const {
    return enumerate(path, [](CMPIInstanceMI* mi, const ProviderCall& call) {
        return mi->ft->enumerateInstanceNames(mi, call.context, call.result, call.path);
    });
}

Answer Broker::enumerate_instances(const ObjectPath& path, const PropertyList& properties) const {
    PropertyNames names(properties);
    return enumerate(path, [&](CMPIInstanceMI* mi, const ProviderCall& call) {
        return mi->ft->enumerateInstances(mi, call.context, call.result, call.path, names.get());
    });
}

Answer Broker::get_instance(const ObjectPath& path, const PropertyList& properties) const {
    const Request request;
    Answer answer;
    const Loaded* const entry = loaded(path, &Registration::instance);
    if (entry != nullptr) {
        PropertyNames names(properties);
        const ProviderCall call(path);
        call.take(entry->instance->ft->getInstance(entry->instance, call.context, call.result, call.path, names.get()),
                  answer);
    }
    if (answer.code == CMPI_RC_OK && answer.instances.empty()) {
        answer.code = CMPI_RC_ERR_NOT_FOUND;
    }
    return answer;
}

template <typename Call>
Answer Broker::associate(const ObjectPath& path, const std::string& assoc_class, Call call) const {
    const Request request;
    Answer answer;
    for (const Loaded& entry : loaded_) {
        const bool asked_for = assoc_class.empty() || schema_.find(assoc_class) == nullptr ||
                               schema_.is_a(entry.registration.class_name, assoc_class);
        if (!entry.registration.association || !asked_for ||
            !same_name(entry.registration.name_space, path.name_space)) {
            continue;
        }
        const ProviderCall provider(path);
        provider.take(call(entry.association, provider), answer);
        if (answer.code != CMPI_RC_OK) {
            break;
        }
    }
    return answer;
}

Answer Broker::associators(const ObjectPath& path, const AssociationFilter& filter,
                           const PropertyList& properties) const {
    PropertyNames names(properties);
    return associate(path, filter.assoc_class, [&](CMPIAssociationMI* mi, const ProviderCall& call) {
        return mi->ft->associators(mi, call.context, call.result, call.path, or_null(filter.assoc_class),
                                   or_null(filter.result_class), or_null(filter.role), or_null(filter.result_role),
                                   names.get());
    });
}

Answer Broker::associator_names(const ObjectPath& path, const AssociationFilter& filter) const {
    return associate(path, filter.assoc_class, [&](CMPIAssociationMI* mi, const ProviderCall& call) {
        return mi->ft->associatorNames(mi, call.context, call.result, call.path, or_null(filter.assoc_class),
                                       or_null(filter.result_class), or_null(filter.role), or_null(filter.result_role));
    });
}

// Of a reference, the result class is the association's.
Answer Broker::references(const ObjectPath& path, const AssociationFilter& filter,
                          const PropertyList& properties) const {
    PropertyNames names(properties);
    return associate(path, filter.result_class, [&](CMPIAssociationMI* mi, const ProviderCall& call) {
        return mi->ft->references(mi, call.context, call.result, call.path, or_null(filter.result_class),
                                  or_null(filter.role), names.get());
    });
}

Answer Broker::reference_names(const ObjectPath& path, const AssociationFilter& filter) const {
    return associate(path, filter.result_class, [&](CMPIAssociationMI* mi, const ProviderCall& call) {
        return mi->ft->referenceNames(mi, call.context, call.result, call.path, or_null(filter.result_class),
                                      or_null(filter.role));
    });
}

Answer Broker::invoke_method(const ObjectPath& path, const std::string& method, const NamedList& in) const {
    const Request request;
    Answer answer;
    const Loaded* const entry = loaded(path, &Registration::method);
    if (entry == nullptr) {
        answer.code = CMPI_RC_ERR_METHOD_NOT_AVAILABLE;
        return answer;
    }
    const ProviderCall call(path);
    auto* const out = make_object<ArgsObject>(NamedList());
    call.take(entry->method->ft->invokeMethod(entry->method, call.context, call.result, call.path, method.c_str(),
                                              make_object<ArgsObject>(in), out),
              answer);
    answer.out = out->args;
    return answer;
}

}  // namespace cimserver
