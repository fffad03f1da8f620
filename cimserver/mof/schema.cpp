#include "cimserver/mof/schema.h"

#include <algorithm>
#include <utility>

namespace cimserver {

bool Element::has(std::string_view qualifier) const {
    const CimValue* const value = find(qualifiers, qualifier);
    const bool* const flag = value == nullptr ? nullptr : std::get_if<bool>(&value->data);
    return value != nullptr && (flag == nullptr || *flag);
}

bool Schema::add(Class definition) {
    if (find(definition.name) != nullptr) {
        return false;
    }
    classes_.push_back(std::move(definition));
    return true;
}

const Class* Schema::find(std::string_view name) const {
    return find_named(classes_, name);
}

// A superclass is defined before its subclass, so this ends.
std::vector<const Class*> Schema::lineage(std::string_view name) const {
    std::vector<const Class*> result;
    for (const Class* each = find(name); each != nullptr; each = find(each->superclass)) {
        result.push_back(each);
    }
    return result;
}

bool Schema::is_a(std::string_view name, std::string_view ancestor) const {
    const auto classes = lineage(name);
    return std::any_of(classes.begin(), classes.end(), [&](const Class* c) { return same_name(c->name, ancestor); });
}

namespace {

template <typename Feature>
const Feature* find_upwards(const std::vector<const Class*>& lineage, std::string_view name,
                            std::vector<Feature> Class::*features) {
    for (const Class* const each : lineage) {
        if (const Feature* const found = find_named(each->*features, name)) {
            return found;
        }
    }
    return nullptr;
}

}  // namespace

const Element* Schema::find_property(std::string_view class_name, std::string_view property) const {
    return find_upwards(lineage(class_name), property, &Class::properties);
}

const Method* Schema::find_method(std::string_view class_name, std::string_view method) const {
    return find_upwards(lineage(class_name), method, &Class::methods);
}

std::vector<const Class*> Schema::subclasses(std::string_view name, bool deep) const {
    std::vector<const Class*> result;
    for (const Class& definition : classes_) {
        const bool next_level = same_name(definition.superclass, name);
        const bool below = !same_name(definition.name, name) && (name.empty() || is_a(definition.name, name));
        if (next_level || (deep && below)) {
            result.push_back(&definition);
        }
    }
    return result;
}

}  // namespace cimserver
