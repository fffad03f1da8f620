#include "cimserver/mof/schema.h"

#include <algorithm>
#include <utility>

namespace cimserver {

bool Element::has(std::string_view qualifier) const {
    const Value* const value = find(qualifiers, qualifier);
    const bool* const flag = value == nullptr ? nullptr : std::get_if<bool>(&value->data);
    return value != nullptr && (flag == nullptr || *flag);
}

bool Schema::add(Class definition) {
    std::string key = lower_case(definition.name);
    const bool added = classes_.try_emplace(key, std::move(definition)).second;
    if (added) {
        order_.push_back(std::move(key));
    }
    return added;
}

const Class* Schema::find(std::string_view name) const {
    const auto found = classes_.find(lower_case(name));
    return found == classes_.end() ? nullptr : &found->second;
}

// A superclass is defined before its subclass, so this ends.
std::vector<const Class*> Schema::ancestors(std::string_view name) const {
    std::vector<const Class*> result;
    const Class* definition = find(name);
    while (definition != nullptr && !definition->superclass.empty()) {
        definition = find(definition->superclass);
        if (definition != nullptr) {
            result.push_back(definition);
        }
    }
    return result;
}

bool Schema::is_a(std::string_view name, std::string_view ancestor) const {
    const Class* const definition = find(name);
    if (definition == nullptr) {
        return false;
    }
    if (same_name(definition->name, ancestor)) {
        return true;
    }
    const auto above = ancestors(name);
    return std::any_of(above.begin(), above.end(), [&](const Class* c) { return same_name(c->name, ancestor); });
}

namespace {

template <typename Feature>
const Feature* named(const std::vector<Feature>& features, std::string_view name) {
    const auto found =
        std::find_if(features.begin(), features.end(), [&](const Feature& f) { return same_name(f.name, name); });
    return found == features.end() ? nullptr : &*found;
}

template <typename Feature>
const Feature* find_upwards(const Schema& schema, std::string_view class_name, std::string_view name,
                            std::vector<Feature> Class::*features) {
    const Class* const definition = schema.find(class_name);
    if (definition == nullptr) {
        return nullptr;
    }
    if (const Feature* const own = named(definition->*features, name)) {
        return own;
    }
    for (const Class* const above : schema.ancestors(class_name)) {
        if (const Feature* const inherited = named(above->*features, name)) {
            return inherited;
        }
    }
    return nullptr;
}

}  // namespace

const Element* Schema::find_property(std::string_view class_name, std::string_view property) const {
    return find_upwards(*this, class_name, property, &Class::properties);
}

const Method* Schema::find_method(std::string_view class_name, std::string_view method) const {
    return find_upwards(*this, class_name, method, &Class::methods);
}

std::vector<const Class*> Schema::subclasses(std::string_view name, bool deep) const {
    std::vector<const Class*> result;
    for (const std::string& key : order_) {
        const Class& definition = classes_.at(key);
        const bool next_level = same_name(definition.superclass, name);
        const bool below = !same_name(definition.name, name) && (name.empty() || is_a(key, name));
        if (next_level || (deep && below)) {
            result.push_back(&definition);
        }
    }
    return result;
}

}  // namespace cimserver
