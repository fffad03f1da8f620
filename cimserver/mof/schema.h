// Class definitions: what the MOF reader makes and what the broker, GetClass and the types of method arguments
// are answered from. Filled once at start, only read afterwards.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cimserver/model/value.h"

namespace cimserver {

using QualifierList = NamedList;  // a qualifier without a value in parentheses is the boolean true

// A property, a method's parameter, or a method's own type.
struct Element {
    std::string name;
    CMPIType type = CMPI_null;  // CMPI_ref for a reference
    std::string reference_class;
    QualifierList qualifiers;
    CimValue initial;  // a property's value in the definition; null when it has none

    bool has(std::string_view qualifier) const;  // present and not false
};

struct Method : Element {
    std::vector<Element> parameters;
};

struct Class {
    std::string name;
    std::string superclass;  // empty: none
    QualifierList qualifiers;
    std::vector<Element> properties;  // its own
    std::vector<Method> methods;      // its own
};

class Schema {
public:
    // False when a class of that name is there already.
    bool add(Class definition);

    // Null when there is none. Names without regard to case.
    const Class* find(std::string_view name) const;

    // The class itself or a superclass of it. False when either is unknown.
    bool is_a(std::string_view name, std::string_view ancestor) const;

    // From the class upwards; the second is the class that has it. Null when there is none.
    const Element* find_property(std::string_view class_name, std::string_view property) const;
    const Method* find_method(std::string_view class_name, std::string_view method) const;

    // The class, then its superclasses, the nearest first. Empty when it is unknown.
    std::vector<const Class*> lineage(std::string_view name) const;

    // Below a class, or below none for an empty name: the next level, or all; in order of definition.
    std::vector<const Class*> subclasses(std::string_view name, bool deep) const;

private:
    std::vector<Class> classes_;  // in order of definition
};

}  // namespace cimserver
