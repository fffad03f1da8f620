// CIM values, object paths and instances as plain data: what the broker's objects hold and what CIM-XML is
// read into and written from. Types are CMPI's; CMPI_chars never occurs here, a text is a CMPI_string.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "cmpi/cmpi.h"

namespace cimserver {

struct ObjectPath;
struct Instance;
struct CimValue;

using ValueList = std::vector<CimValue>;

struct CimValue {
    CMPIType type = CMPI_null;  // with CMPI_ARRAY for a list; a null value may have a type
    std::variant<std::monostate, bool, std::uint64_t, std::int64_t, double, std::string,
                 std::shared_ptr<const ObjectPath>, std::shared_ptr<const Instance>, ValueList>
        data;

    bool is_null() const { return std::holds_alternative<std::monostate>(data); }
    bool is_array() const { return (type & CMPI_ARRAY) != 0; }
};

struct Named {
    std::string name;
    CimValue value;
};
using NamedList = std::vector<Named>;

struct ObjectPath {
    std::string host;
    std::string name_space;
    std::string class_name;
    NamedList keys;
};

// Names of properties, without a value: all of them.
using PropertyList = std::optional<std::vector<std::string>>;

struct Instance {
    ObjectPath path;
    NamedList properties;
    PropertyList filter;
};

// --- making values ----------------------------------------------------------------------------------------

CimValue text_value(std::string_view text);
CimValue uint32_value(std::uint32_t number);
CimValue path_value(ObjectPath path);
CimValue instance_value(const Instance& instance);
CimValue text_list(const std::vector<std::string>& texts);
CimValue null_value(CMPIType type);

// The path of a reference; null when the value is none.
const ObjectPath* reference_in(const CimValue& value);

// --- names ------------------------------------------------------------------------------------------------
// CIM names are compared without regard to case, ASCII only.

bool same_name(std::string_view a, std::string_view b);
bool contains_name(const std::vector<std::string>& names, std::string_view name);

// The first of that name in a list of things with names; null when there is none.
template <typename Thing>
const Thing* find_named(const std::vector<Thing>& list, std::string_view name) {
    const auto found = std::find_if(list.begin(), list.end(), [&](const Thing& t) { return same_name(t.name, name); });
    return found == list.end() ? nullptr : &*found;
}

const CimValue* find(const NamedList& list, std::string_view name);

// Replaces the value of that name, which keeps its first spelling, or adds it.
void set(NamedList& list, std::string_view name, CimValue value);

// --- types ------------------------------------------------------------------------------------------------

bool is_unsigned(CMPIType type);  // of a single value
bool is_signed(CMPIType type);
unsigned integer_bits(CMPIType type);

// "uint32" for CMPI_uint32 and its array; empty for a type that CIM doesn't name so.
std::string_view type_name(CMPIType type);

// The type of that name, CMPI_null when there is none.
CMPIType type_of(std::string_view name);

// The value of a single type that a text stands for, as in CIM-XML and MOF. Without one when it stands for none.
std::optional<CimValue> parse_value(CMPIType type, std::string_view text);

// The text of a single value that isn't null, a reference or an instance.
std::string value_text(const CimValue& value);

}  // namespace cimserver
