// What a provider asks of other providers through the broker: the table of operations.
#include <utility>

#include "cimserver/broker/broker.h"
#include "cimserver/broker/objects.h"
#include "cimserver/broker/tables.h"

namespace cimserver {

namespace {

PropertyList property_list(const char** names) {
    if (names == nullptr) {
        return std::nullopt;
    }
    PropertyList list(std::in_place);
    for (; *names != nullptr; ++names) {
        list->emplace_back(*names);
    }
    return list;
}

std::string or_empty(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

void refuse_failure(const Answer& answer) {
    if (answer.code != CMPI_RC_OK) {
        throw Refusal{answer.code};
    }
}

CMPIEnumeration* paths_of(const Answer& answer) {
    refuse_failure(answer);
    ValueList values;
    for (const ObjectPath& path : answer.paths) {
        values.push_back(path_value(path));
    }
    return make_object<EnumerationObject>(std::move(values));
}

CMPIEnumeration* instances_of(const Answer& answer) {
    refuse_failure(answer);
    ValueList values;
    for (const Instance& instance : answer.instances) {
        values.push_back(instance_value(instance));
    }
    return make_object<EnumerationObject>(std::move(values));
}

const ObjectPath& path_of(const CMPIObjectPath* path) {
    return object<PathObject>(path).path;
}

// --- operations -----------------------------------------------------------------------------------------------

CMPIEnumeration* enumerate_instance_names(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                                          CMPIStatus* status) {
    return guarded<CMPIEnumeration*>(
        status, nullptr, [&] { return paths_of(broker_of(broker).enumerate_instance_names(path_of(path))); });
}

CMPIEnumeration* enumerate_instances(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                                     const char** properties, CMPIStatus* status) {
    return guarded<CMPIEnumeration*>(status, nullptr, [&] {
        return instances_of(broker_of(broker).enumerate_instances(path_of(path), property_list(properties)));
    });
}

CMPIInstance* get_instance(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                           const char** properties, CMPIStatus* status) {
    return guarded<CMPIInstance*>(status, nullptr, [&] {
        const Answer answer = broker_of(broker).get_instance(path_of(path), property_list(properties));
        refuse_failure(answer);
        return make_object<InstanceObject>(answer.instances.front(), &broker_of(broker).schema());
    });
}

CMPIEnumeration* associators(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                             const char* assoc_class, const char* result_class, const char* role,
                             const char* result_role, const char** properties, CMPIStatus* status) {
    return guarded<CMPIEnumeration*>(status, nullptr, [&] {
        const AssociationFilter filter{or_empty(assoc_class), or_empty(result_class), or_empty(role),
                                       or_empty(result_role)};
        return instances_of(broker_of(broker).associators(path_of(path), filter, property_list(properties)));
    });
}

CMPIEnumeration* associator_names(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                                  const char* assoc_class, const char* result_class, const char* role,
                                  const char* result_role, CMPIStatus* status) {
    return guarded<CMPIEnumeration*>(status, nullptr, [&] {
        const AssociationFilter filter{or_empty(assoc_class), or_empty(result_class), or_empty(role),
                                       or_empty(result_role)};
        return paths_of(broker_of(broker).associator_names(path_of(path), filter));
    });
}

CMPIEnumeration* references(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                            const char* result_class, const char* role, const char** properties, CMPIStatus* status) {
    return guarded<CMPIEnumeration*>(status, nullptr, [&] {
        const AssociationFilter filter{{}, or_empty(result_class), or_empty(role), {}};
        return instances_of(broker_of(broker).references(path_of(path), filter, property_list(properties)));
    });
}

CMPIEnumeration* reference_names(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path,
                                 const char* result_class, const char* role, CMPIStatus* status) {
    return guarded<CMPIEnumeration*>(status, nullptr, [&] {
        const AssociationFilter filter{{}, or_empty(result_class), or_empty(role), {}};
        return paths_of(broker_of(broker).reference_names(path_of(path), filter));
    });
}

CMPIData invoke_method(const CMPIBroker* broker, const CMPIContext*, const CMPIObjectPath* path, const char* method,
                       const CMPIArgs* in, CMPIArgs* out, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] {
        const NamedList arguments = in == nullptr ? NamedList() : object<ArgsObject>(in).args;
        const Answer answer = broker_of(broker).invoke_method(path_of(path), std::string(needed(method)), arguments);
        refuse_failure(answer);
        if (out != nullptr) {
            object<ArgsObject>(out).args = answer.out;
        }
        return to_cmpi(answer.return_value);
    });
}

// --- threads of a provider's own: a request for each, from attaching to detaching ----------------------------

thread_local std::unique_ptr<Request> attached;

CMPIContext* prepare_attach_thread(const CMPIBroker*, const CMPIContext* context) {
    return guarded<CMPIContext*>(nullptr, nullptr, [&] { return context->ft->clone(context, nullptr); });
}

CMPIStatus attach_thread(const CMPIBroker*, const CMPIContext*) {
    return guarded_status([] {
        if (Request::current() == nullptr) {
            attached = std::make_unique<Request>();
        }
    });
}

CMPIStatus detach_thread(const CMPIBroker*, const CMPIContext*) {
    return guarded_status([] { attached.reset(); });
}

// --- operations that no class here has -----------------------------------------------------------------------

CMPIStatus deliver_indication(const CMPIBroker*, const CMPIContext*, const char*, const CMPIInstance*) {
    return {CMPI_RC_ERR_NOT_SUPPORTED, nullptr};
}

CMPIObjectPath* create_instance(const CMPIBroker*, const CMPIContext*, const CMPIObjectPath*, const CMPIInstance*,
                                CMPIStatus* status) {
    put(status, CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIStatus modify_instance(const CMPIBroker*, const CMPIContext*, const CMPIObjectPath*, const CMPIInstance*,
                           const char**) {
    return {CMPI_RC_ERR_NOT_SUPPORTED, nullptr};
}

CMPIStatus delete_instance(const CMPIBroker*, const CMPIContext*, const CMPIObjectPath*) {
    return {CMPI_RC_ERR_NOT_SUPPORTED, nullptr};
}

CMPIEnumeration* exec_query(const CMPIBroker*, const CMPIContext*, const CMPIObjectPath*, const char*, const char*,
                            CMPIStatus* status) {
    put(status, CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

CMPIStatus set_property(const CMPIBroker*, const CMPIContext*, const CMPIObjectPath*, const char*, const CMPIValue*,
                        CMPIType) {
    return {CMPI_RC_ERR_NOT_SUPPORTED, nullptr};
}

CMPIData get_property(const CMPIBroker*, const CMPIContext*, const CMPIObjectPath*, const char*, CMPIStatus* status) {
    put(status, CMPI_RC_ERR_NOT_SUPPORTED);
    return NO_DATA;
}

}  // namespace

const CMPIBrokerFT broker_table = {
    .brokerCapabilities = CMPI_MB_BasicRead | CMPI_MB_AssociationTraversal,
    .brokerVersion = CMPIVersion200,
    .brokerName = "ostrel-simhost",
    .prepareAttachThread = prepare_attach_thread,
    .attachThread = attach_thread,
    .detachThread = detach_thread,
    .deliverIndication = deliver_indication,
    .enumerateInstanceNames = enumerate_instance_names,
    .getInstance = get_instance,
    .createInstance = create_instance,
    .modifyInstance = modify_instance,
    .deleteInstance = delete_instance,
    .execQuery = exec_query,
    .enumerateInstances = enumerate_instances,
    .associators = associators,
    .associatorNames = associator_names,
    .references = references,
    .referenceNames = reference_names,
    .invokeMethod = invoke_method,
    .setProperty = set_property,
    .getProperty = get_property,
};

}  // namespace cimserver
