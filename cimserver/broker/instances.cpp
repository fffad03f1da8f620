// Instances: their properties are held to the class and to the property filter.
#include <utility>

#include "cimserver/broker/objects.h"

namespace cimserver {

namespace {

Instance& instance_of(const CMPIInstance* instance) {
    return object<InstanceObject>(instance).instance;
}

bool passes(const Instance& instance, std::string_view name) {
    return !instance.filter || contains_name(*instance.filter, name);
}

CMPIInstance* clone_instance(const CMPIInstance* instance, CMPIStatus* status) {
    return guarded<CMPIInstance*>(status, nullptr, [&] {
        const auto& made = object<InstanceObject>(instance);
        return own_clone<InstanceObject, CMPIInstance>(made.instance, made.schema);
    });
}

CMPIData get_property(const CMPIInstance* instance, const char* name, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] {
        const auto& made = object<InstanceObject>(instance);
        return get_named(made.instance.properties, name, made.schema);
    });
}

CMPIData get_property_at(const CMPIInstance* instance, CMPICount index, CMPIString** name, CMPIStatus* status) {
    return guarded(status, NO_DATA, [&] {
        const auto& made = object<InstanceObject>(instance);
        return get_named_at(made.instance.properties, index, name, made.schema);
    });
}

CMPICount get_property_count(const CMPIInstance* instance, CMPIStatus* status) {
    return guarded<CMPICount>(status, 0,
                              [&] { return static_cast<CMPICount>(instance_of(instance).properties.size()); });
}

// Other brokers let a property through that the class doesn't have, or crash on a type that isn't the class's:
// here a provider's mistake shows.
void hold_to_class(const InstanceObject& made, std::string_view name, const Value& value) {
    if (made.schema == nullptr) {
        return;
    }
    const Element* const property = made.schema->find_property(made.instance.path.class_name, name);
    if (property == nullptr) {
        throw Refusal{CMPI_RC_ERR_NO_SUCH_PROPERTY};
    }
    if (!value.is_null() && value.type != property->type) {
        throw Refusal{CMPI_RC_ERR_TYPE_MISMATCH};
    }
}

CMPIStatus set_property(const CMPIInstance* instance, const char* name, const CMPIValue* value, CMPIType type) {
    return guarded_status([&] {
        auto& made = object<InstanceObject>(instance);
        Value property = from_cmpi(value, type);
        hold_to_class(made, needed(name), property);
        if (passes(made.instance, name)) {
            set(made.instance.properties, name, std::move(property));
        }
    });
}

CMPIStatus set_property_with_origin(const CMPIInstance* instance, const char* name, const CMPIValue* value,
                                    CMPIType type, const char*) {
    return set_property(instance, name, value, type);
}

CMPIObjectPath* get_object_path(const CMPIInstance* instance, CMPIStatus* status) {
    return guarded<CMPIObjectPath*>(status, nullptr,
                                    [&] { return make_object<PathObject>(instance_of(instance).path); });
}

void add_names(std::vector<std::string>& names, const char** list) {
    for (; list != nullptr && *list != nullptr; ++list) {
        names.emplace_back(*list);
    }
}

CMPIStatus set_property_filter(CMPIInstance* instance, const char** properties, const char** keys) {
    return guarded_status([&] {
        Instance& made = instance_of(instance);
        if (properties == nullptr) {
            made.filter.reset();
            return;
        }
        std::vector<std::string> names;
        add_names(names, properties);
        add_names(names, keys);
        made.filter = std::move(names);
        std::erase_if(made.properties, [&](const Named& property) { return !passes(made, property.name); });
    });
}

CMPIStatus set_object_path(CMPIInstance* instance, const CMPIObjectPath* path) {
    return guarded_status([&] { instance_of(instance).path = object<PathObject>(path).path; });
}

}  // namespace

const CMPIInstanceFT instance_table = {
    .ftVersion = CMPIVersion200,
    .release = release_object<InstanceObject, CMPIInstance>,
    .clone = clone_instance,
    .getProperty = get_property,
    .getPropertyAt = get_property_at,
    .getPropertyCount = get_property_count,
    .setProperty = set_property,
    .getObjectPath = get_object_path,
    .setPropertyFilter = set_property_filter,
    .setObjectPath = set_object_path,
    .setPropertyWithOrigin = set_property_with_origin,
};

}  // namespace cimserver
