// Instances: their properties are held to the class and to the property filter.
#include <utility>

#include "cimserver/broker/objects.h"

namespace cimserver {

namespace {

bool passes(const Instance& instance, std::string_view name) {
    return !instance.filter || contains_name(*instance.filter, name);
}

// Other brokers let a property through that the class doesn't have, or crash on a type that isn't the class's:
// here a provider's mistake shows.
void hold_to_class(const InstanceObject& made, std::string_view name, const CimValue& value) {
    if (made.schema == nullptr) {
        return;
    }
    const Element* const property = made.schema->find_property(made.instance.path.class_name, name);
    if (property == nullptr) {
        throw EntryRefusal{CMPI_RC_ERR_NO_SUCH_PROPERTY};
    }
    if (!value.is_null() && value.type != property->type) {
        throw EntryRefusal{CMPI_RC_ERR_TYPE_MISMATCH};
    }
}

void set_property(const CMPIInstance* instance, const char* name, const CMPIValue* value, CMPIType type) {
    auto& made = object(instance);
    CimValue property = from_cmpi(value, type);
    hold_to_class(made, needed(name), property);
    if (passes(made.instance, name)) {
        set(made.instance.properties, name, std::move(property));
    }
}

void set_property_with_origin(const CMPIInstance* instance, const char* name, const CMPIValue* value, CMPIType type,
                              const char*) {
    set_property(instance, name, value, type);
}

CMPIObjectPath* get_object_path(const CMPIInstance* instance) {
    return make_object<PathObject>(object(instance).instance.path);
}

void set_property_filter(CMPIInstance* instance, const char** properties, const char** keys) {
    Instance& made = object(instance).instance;
    made.filter = property_list(properties);
    if (made.filter) {
        const auto further = property_list(keys).value_or(std::vector<std::string>());
        made.filter->insert(made.filter->end(), further.begin(), further.end());
        std::erase_if(made.properties, [&](const Named& property) { return !passes(made, property.name); });
    }
}

void set_object_path(CMPIInstance* instance, const CMPIObjectPath* path) {
    object(instance).instance.path = object(path).path;
}

}  // namespace

const CMPIInstanceFT instance_table = {
    .ftVersion = CMPIVersion200,
    .release = entry<release<CMPIInstance>>,
    .clone = entry<clone<CMPIInstance>>,
    .getProperty = entry<get<CMPIInstance>>,
    .getPropertyAt = entry<get_at<CMPIInstance>>,
    .getPropertyCount = entry<count<CMPIInstance>>,
    .setProperty = entry<set_property>,
    .getObjectPath = entry<get_object_path>,
    .setPropertyFilter = entry<set_property_filter>,
    .setObjectPath = entry<set_object_path>,
    .setPropertyWithOrigin = entry<set_property_with_origin>,
};

}  // namespace cimserver
