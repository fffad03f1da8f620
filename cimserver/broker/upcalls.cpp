// What a provider asks of other providers through the broker: the table of operations.
#include <utility>

#include "cimserver/broker/broker.h"
#include "cimserver/broker/objects.h"
#include "cimserver/broker/tables.h"

namespace cimserver {

namespace {

std::string or_empty(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

const ObjectPath& path_of(const CMPIObjectPath* path) {
    return object(path).path;
}

const ProviderAnswer& without_failure(const ProviderAnswer& answer) {
    if (answer.code != CMPI_RC_OK) {
        throw EntryRefusal{answer.code};
    }
    return answer;
}

CMPIEnumeration* objects_of(const ProviderAnswer& answer) {
    ValueList values;
    for (const ObjectPath& path : without_failure(answer).paths) {
        values.push_back(path_value(path));
    }
    for (const Instance& instance : answer.instances) {
        values.push_back(instance_value(instance));
    }
    return make_object<EnumerationObject>(std::move(values));
}

// --- operations -----------------------------------------------------------------------------------------------

CMPIEnumeration* enumerate_instance_names(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path) {
    return objects_of(broker_of(broker).enumerate_instance_names(path_of(path)));
}

CMPIEnumeration* enumerate_instances(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                                     const char** properties) {
    return objects_of(broker_of(broker).enumerate_instances(path_of(path), property_list(properties)));
}

CMPIInstance* get_instance(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                           const char** properties) {
    const ProviderAnswer answer = broker_of(broker).get_instance(path_of(path), property_list(properties));
    return make_object<InstanceObject>(without_failure(answer).instances.front(), &broker_of(broker).schema());
}

CMPIEnumeration* associators(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                             const char* assoc_class, const char* result_class, const char* role,
                             const char* result_role, const char** properties) {
    const AssociationFilter filter{or_empty(assoc_class), or_empty(result_class), or_empty(role),
                                   or_empty(result_role)};
    return objects_of(broker_of(broker).associators(path_of(path), filter, property_list(properties)));
}

CMPIEnumeration* associator_names(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                                  const char* assoc_class, const char* result_class, const char* role,
                                  const char* result_role) {
    const AssociationFilter filter{or_empty(assoc_class), or_empty(result_class), or_empty(role),
                                   or_empty(result_role)};
    return objects_of(broker_of(broker).associator_names(path_of(path), filter));
}

CMPIEnumeration* references(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                            const char* result_class, const char* role, const char** properties) {
    const AssociationFilter filter{.result_class = or_empty(result_class), .role = or_empty(role)};
    return objects_of(broker_of(broker).references(path_of(path), filter, property_list(properties)));
}

CMPIEnumeration* reference_names(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                                 const char* result_class, const char* role) {
    const AssociationFilter filter{.result_class = or_empty(result_class), .role = or_empty(role)};
    return objects_of(broker_of(broker).reference_names(path_of(path), filter));
}

CMPIData invoke_method(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path, const char* method,
                       const CMPIArgs* in, CMPIArgs* out) {
    const NamedList arguments = in == nullptr ? NamedList() : list_of(in);
    const ProviderAnswer answer =
        broker_of(broker).invoke_method(path_of(path), std::string(needed(method)), arguments);
    without_failure(answer);
    if (out != nullptr) {
        list_of(out) = answer.out;
    }
    return to_cmpi(answer.return_value);
}

// --- threads of a provider's own: a request for each, from attaching to detaching ----------------------------

thread_local std::unique_ptr<Request> attached;

CMPIContext* prepare_attach_thread(const CMPIBroker*, const CMPIContext* context) {
    return entry<clone<CMPIContext>>(context, nullptr);
}

void attach_thread(const CMPIBroker*, const CMPIContext*) {
    if (Request::current() == nullptr) {
        attached = std::make_unique<Request>();
    }
}

void detach_thread(const CMPIBroker*, const CMPIContext*) {
    attached.reset();
}

}  // namespace

const CMPIBrokerFT broker_table = {
    .brokerCapabilities = CMPI_MB_BasicRead | CMPI_MB_AssociationTraversal,
    .brokerVersion = CMPIVersion200,
    .brokerName = "ostrel-simhost",
    .prepareAttachThread = prepare_attach_thread,
    .attachThread = entry<attach_thread>,
    .detachThread = entry<detach_thread>,
    .deliverIndication = not_supported,
    .enumerateInstanceNames = entry<enumerate_instance_names>,
    .getInstance = entry<get_instance>,
    .createInstance = not_supported,
    .modifyInstance = not_supported,
    .deleteInstance = not_supported,
    .execQuery = not_supported,
    .enumerateInstances = entry<enumerate_instances>,
    .associators = entry<associators>,
    .associatorNames = entry<associator_names>,
    .references = entry<references>,
    .referenceNames = entry<reference_names>,
    .invokeMethod = entry<invoke_method>,
    .setProperty = not_supported,
    .getProperty = not_supported,
};

}  // namespace cimserver
