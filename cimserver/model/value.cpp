#include "cimserver/model/value.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace cimserver {

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

struct TypeRow {
    std::string_view name;
    CMPIType type;
    unsigned bits;  // of an integer
};

constexpr std::array<TypeRow, 14> types = {{
    {"boolean", CMPI_boolean, 0},
    {"string", CMPI_string, 0},
    {"uint8", CMPI_uint8, 8},
    {"uint16", CMPI_uint16, 16},
    {"uint32", CMPI_uint32, 32},
    {"uint64", CMPI_uint64, 64},
    {"sint8", CMPI_sint8, 8},
    {"sint16", CMPI_sint16, 16},
    {"sint32", CMPI_sint32, 32},
    {"sint64", CMPI_sint64, 64},
    {"real32", CMPI_real32, 0},
    {"real64", CMPI_real64, 0},
    {"char16", CMPI_char16, 16},
    {"datetime", CMPI_dateTime, 0},
}};

const TypeRow* row_of(CMPIType type) {
    const auto single = static_cast<CMPIType>(type & ~CMPI_ARRAY);
    const auto row = std::find_if(types.begin(), types.end(), [&](const TypeRow& r) { return r.type == single; });
    return row == types.end() ? nullptr : &*row;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const auto first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Digits of base 10 or, after 0x, 16, the whole text; an integer of the type's bits.
std::optional<CimValue> parse_integer(CMPIType type, std::string_view text) {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && lower(text[1]) == 'x';
    if (hexadecimal) {
        text.remove_prefix(2);
    }
    std::uint64_t magnitude = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude, hexadecimal ? 16 : 10);
    const std::uint64_t highest = UINT64_MAX >> (64 - integer_bits(type) + (is_signed(type) ? 1 : 0));
    const std::uint64_t largest = !negative ? highest : is_signed(type) ? highest + 1 : 0;
    if (error != std::errc() || end != text.data() + text.size() || magnitude > largest) {
        return std::nullopt;
    }
    if (is_unsigned(type)) {
        return CimValue{type, magnitude};
    }
    return CimValue{type, static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude)};
}

std::optional<CimValue> parse_real(CMPIType type, std::string_view text) {
    const std::string terminated(text);
    char* end = nullptr;
    const double number = std::strtod(terminated.c_str(), &end);
    if (terminated.empty() || end != terminated.c_str() + terminated.size() || !std::isfinite(number)) {
        return std::nullopt;
    }
    return CimValue{type, number};
}

std::optional<CimValue> parse_boolean(std::string_view text) {
    if (same_name(text, "true")) {
        return CimValue{CMPI_boolean, true};
    }
    return same_name(text, "false") ? std::optional<CimValue>(CimValue{CMPI_boolean, false}) : std::nullopt;
}

}  // namespace

CimValue text_value(std::string_view text) {
    return {CMPI_string, std::string(text)};
}

CimValue uint32_value(std::uint32_t number) {
    return {CMPI_uint32, std::uint64_t{number}};
}

CimValue path_value(ObjectPath path) {
    return {CMPI_ref, std::make_shared<const ObjectPath>(std::move(path))};
}

CimValue instance_value(const Instance& instance) {
    return {CMPI_instance, std::make_shared<const Instance>(instance)};
}

CimValue text_list(const std::vector<std::string>& texts) {
    ValueList list;
    for (const std::string& text : texts) {
        list.push_back(text_value(text));
    }
    return {CMPI_stringA, std::move(list)};
}

CimValue null_value(CMPIType type) {
    return {type, std::monostate()};
}

const ObjectPath* reference_in(const CimValue& value) {
    const auto* const path = std::get_if<std::shared_ptr<const ObjectPath>>(&value.data);
    return path == nullptr ? nullptr : path->get();
}

bool same_name(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

bool contains_name(const std::vector<std::string>& names, std::string_view name) {
    return std::any_of(names.begin(), names.end(), [&](const std::string& n) { return same_name(n, name); });
}

const CimValue* find(const NamedList& list, std::string_view name) {
    const Named* const found = find_named(list, name);
    return found == nullptr ? nullptr : &found->value;
}

void set(NamedList& list, std::string_view name, CimValue value) {
    for (Named& named : list) {
        if (same_name(named.name, name)) {
            named.value = std::move(value);
            return;
        }
    }
    list.push_back({std::string(name), std::move(value)});
}

bool is_unsigned(CMPIType type) {
    return type == CMPI_char16 || (type & ~0x30) == CMPI_uint8;
}

bool is_signed(CMPIType type) {
    return (type & ~0x30) == CMPI_sint8;
}

unsigned integer_bits(CMPIType type) {
    return row_of(type)->bits;
}

std::string_view type_name(CMPIType type) {
    const TypeRow* const row = row_of(type);
    return row == nullptr ? std::string_view() : row->name;
}

CMPIType type_of(std::string_view name) {
    const auto row =
        std::find_if(types.begin(), types.end(), [&](const TypeRow& r) { return same_name(r.name, name); });
    return row == types.end() ? CMPI_null : row->type;
}

std::optional<CimValue> parse_value(CMPIType type, std::string_view text) {
    if (type == CMPI_string || type == CMPI_dateTime) {
        return CimValue{type, std::string(text)};
    }
    const std::string_view word = trimmed(text);
    if (type == CMPI_boolean) {
        return parse_boolean(word);
    }
    if (is_unsigned(type) || is_signed(type)) {
        return parse_integer(type, word);
    }
    return type == CMPI_real32 || type == CMPI_real64 ? parse_real(type, word) : std::nullopt;
}

std::string value_text(const CimValue& value) {
    if (const auto* const flag = std::get_if<bool>(&value.data)) {
        return *flag ? "TRUE" : "FALSE";
    }
    if (const auto* const number = std::get_if<std::uint64_t>(&value.data)) {
        return std::to_string(*number);
    }
    if (const auto* const number = std::get_if<std::int64_t>(&value.data)) {
        return std::to_string(*number);
    }
    if (const auto* const number = std::get_if<double>(&value.data)) {
        std::array<char, 40> text{};
        (void)std::snprintf(text.data(), text.size(), "%.17g", *number);
        return text.data();
    }
    const auto* const text = std::get_if<std::string>(&value.data);
    return text == nullptr ? std::string() : *text;
}

}  // namespace cimserver
