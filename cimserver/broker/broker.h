// A CMPI broker: loads providers by their factories, carries CIM operations to them and answers what they ask
// of it. Operations may be called from any thread, several at once, once load() has returned; each runs on the
// thread that calls it, and all objects that it handed to a provider are freed when it returns.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cimserver/model/value.h"
#include "cimserver/mof/schema.h"
#include "cimserver/registration.h"
#include "cmpi/cmpi.h"

namespace cimserver {

// What a provider answered.
struct ProviderAnswer {
    CMPIrc code = CMPI_RC_OK;
    std::string message;
    std::vector<ObjectPath> paths;
    std::vector<Instance> instances;
    CimValue return_value;  // of a method; null when the provider returned none
    NamedList out;          // output arguments
};

// The filters of the association operations; empty: not given.
struct AssociationFilter {
    std::string assoc_class = {};  // associators and their names only
    std::string result_class = {};
    std::string role = {};
    std::string result_role = {};  // associators and their names only
};

class Broker {
public:
    // Finds a provider's factory by its symbol; null when there is none.
    using FindSymbol = std::function<void*(const std::string& symbol)>;

    explicit Broker(Schema schema);
    ~Broker();  // cleans up
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    // Calls the factory of every type of every registered class. False: `error` says what is missing, and
    // nothing stays loaded.
    bool load(const std::vector<Registration>& registrations, const FindSymbol& find_symbol, std::string& error);

    // Calls every cleanup, each on a thread of its own, in order of the factory calls. Does nothing the second
    // time. No operation may be under way.
    void clean_up();

    const Schema& schema() const { return schema_; }
    const CMPIBroker* handle() const { return &handle_; }
    bool has_name_space(std::string_view name) const;

    // --- operations. A class without a provider: OK and nothing, or NOT_FOUND where one thing is asked for.
    // Enumerations reach the providers of all classes that are the path's or below it.
    ProviderAnswer enumerate_instance_names(const ObjectPath& path) const;
    ProviderAnswer enumerate_instances(const ObjectPath& path, const PropertyList& properties) const;
    ProviderAnswer get_instance(const ObjectPath& path, const PropertyList& properties) const;
    ProviderAnswer associators(const ObjectPath& path, const AssociationFilter& filter,
                               const PropertyList& properties) const;
    ProviderAnswer associator_names(const ObjectPath& path, const AssociationFilter& filter) const;
    ProviderAnswer references(const ObjectPath& path, const AssociationFilter& filter,
                              const PropertyList& properties) const;
    ProviderAnswer reference_names(const ObjectPath& path, const AssociationFilter& filter) const;
    ProviderAnswer invoke_method(const ObjectPath& path, const std::string& method, const NamedList& in) const;

private:
    struct Loaded {
        Registration registration;
        CMPIInstanceMI* instance = nullptr;
        CMPIAssociationMI* association = nullptr;
        CMPIMethodMI* method = nullptr;
    };
    using Cleanup = std::function<CMPIStatus(const CMPIContext*)>;

    Schema schema_;
    CMPIBroker handle_;
    std::vector<Loaded> loaded_;
    std::vector<Cleanup> cleanups_;

    bool load_class(const Registration& registration, const FindSymbol& find_symbol, std::string& error);
    template <typename Mi>
    bool create(Mi*& mi, const std::string& symbol, const FindSymbol& find_symbol, std::string& error);

    // Asks the providers of the path's namespace that `applies` tells, one after the other until one fails.
    template <typename Applies, typename Operate>
    ProviderAnswer ask(const ObjectPath& path, Applies applies, Operate operate) const;
    template <typename Operate>
    ProviderAnswer enumerate(const ObjectPath& path, Operate operate) const;
    template <typename Operate>
    ProviderAnswer associate(const ObjectPath& path, const std::string& assoc_class, Operate operate) const;
};

}  // namespace cimserver
