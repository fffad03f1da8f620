// The class definitions and the registration: as shipped, and with mistakes.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "cimserver/mof/reader.h"
#include "cimserver/registration.h"

namespace {

using namespace cimserver;

const std::string FOLDER = OXR_SOURCE_DIR "/cim/";

Schema shipped_schema() {
    Schema schema;
    std::string error;
    EXPECT_TRUE(read_mof_file(FOLDER + "cim_schema_minimal.mof", schema, error)) << error;
    EXPECT_TRUE(read_mof_file(FOLDER + "ostrel.mof", schema, error)) << error;
    return schema;
}

TEST(Mof, TheShippedClassesStandWhereTheProvidersExpectThem) {
    const Schema schema = shipped_schema();
    const struct {
        const char* name;
        const char* ancestor;
        bool is;
    } cases[] = {
        {"OSTREL_ConnectionService", "CIM_Service", true},
        {"ostrel_connectionSERVICE", "cim_managedelement", true},
        {"OSTREL_ConnectionService", "CIM_SettingData", false},
        {"OSTREL_ConnectionServiceSetting", "CIM_SettingData", true},
        {"OSTREL_ConnectionServiceAssocSetting", "CIM_ElementSettingData", true},
        {"OSTREL_ConnectionServiceAssocSetting", "CIM_ManagedElement", false},
        {"CIM_Service", "OSTREL_ConnectionService", false},
        {"Unknown", "Unknown", false},
        {"", "", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(schema.is_a(c.name, c.ancestor), c.is) << c.name << " " << c.ancestor;
    }
    EXPECT_EQ(schema.find_property("OSTREL_ConnectionServiceSetting", "instanceid")->type, CMPI_string);
    EXPECT_EQ(schema.find_property("OSTREL_ConnectionServiceAssocSetting", "SettingData")->type, CMPI_ref);
    const Method* const renew = schema.find_method("OSTREL_ConnectionServiceSetting", "RenewIscsiConnections");
    ASSERT_NE(renew, nullptr);
    EXPECT_EQ(renew->parameters.front().type, CMPI_stringA);
    EXPECT_TRUE(renew->parameters.back().has("Out"));
    EXPECT_FALSE(renew->parameters.back().has("In"));
}

TEST(Mof, AMistakeIsToldWithItsLine) {
    const struct {
        const char* text;
        const char* error;
    } cases[] = {
        {"class", "f:1: expected a class name, found the end of the file"},
        {"class A {", "f:1: expected a type, found the end of the file"},
        {"class A {\n string a\n};", "f:3: expected ';', found '}'"},
        {"class A {\n strin a;};", "f:2: 'strin' is no type"},
        {"class A {};\nclass a {};", "f:2: class a is defined twice"},
        {"class A {string a;\nuint8 A;};", "f:2: A stands here twice"},
        {"class A {uint32 f(string a,\nstring a);};", "f:2: a stands here twice"},
        {"class B : A {};", "f:1: superclass A of B is not known"},
        {"class A : A {};", "f:1: superclass A of A is not known"},
        {"[Key, key] class A {};", "f:1: qualifier key stands here twice"},
        {"class A { uint8 a = 256; };", "f:1: '256' is no uint8"},
        {"class A { [MaxLen(] string a; };", "f:1: expected a value, found ']'"},
        {"/* for ever\n", "f:1: can't be read: a comment without an end"},
        {"[Description(\"x\n\")] class A {};", "f:1: can't be read: a text without its closing quote"},
        {"instance of A {};", "f:1: expected a class, found instance"},
        {"class A { string a; } \x01", "f:1: can't be read: '\x01'"},
        {"Qualifier Key : boolean = false",
         "f:1: expected ';' after a qualifier declaration, found the end of the file"},
    };
    for (const auto& c : cases) {
        Schema schema;
        std::string error;
        const bool read = read_mof(c.text, "f", schema, error);
        EXPECT_FALSE(read) << c.text;
        EXPECT_EQ(error, c.error) << c.text;
    }
    Schema schema;
    std::string error;
    EXPECT_FALSE(read_mof_file("/nonexistent.mof", schema, error));
    EXPECT_EQ(error, "/nonexistent.mof:0: can't be opened");
}

TEST(Values, AreReadWithinTheirTypesOnly) {
    const struct {
        CMPIType type;
        const char* text;
        const char* read;  // null: refused
    } cases[] = {
        {CMPI_uint32, "4294967295", "4294967295"},
        {CMPI_uint32, "4294967296", nullptr},
        {CMPI_uint32, "-1", nullptr},
        {CMPI_uint32, "", nullptr},
        {CMPI_uint32, " 7 ", "7"},
        {CMPI_uint32, "7 8", nullptr},
        {CMPI_uint32, "0x3c", "60"},
        {CMPI_uint32, "60.0", nullptr},
        {CMPI_uint64, "18446744073709551616", nullptr},
        {CMPI_sint8, "-128", "-128"},
        {CMPI_sint8, "-129", nullptr},
        {CMPI_sint64, "-9223372036854775808", "-9223372036854775808"},
        {CMPI_sint64, "9223372036854775808", nullptr},
        {CMPI_boolean, "True", "TRUE"},
        {CMPI_boolean, "1", nullptr},
        {CMPI_real64, "1e999", nullptr},
        {CMPI_string, " 7 ", " 7 "},
        {CMPI_ref, "x", nullptr},
    };
    for (const auto& c : cases) {
        const auto value = parse_value(c.type, c.text);
        ASSERT_EQ(value.has_value(), c.read != nullptr) << c.text;
        if (value) {
            EXPECT_EQ(value_text(*value), c.read);
        }
    }
}

TEST(Registration, TheTwoShippedFormsSayTheSame) {
    std::vector<Registration> list;
    std::string error;
    ASSERT_TRUE(read_registration_file(FOLDER + "ostrelprovider.sections.reg", list, error)) << error;
    std::string as_lines;
    for (const Registration& entry : list) {
        as_lines += entry.class_name + " " + entry.name_space + " " + entry.provider + " " + entry.location +
                    (entry.instance ? " instance" : "") + (entry.association ? " association" : "") +
                    (entry.method ? " method" : "") + "\n";
    }
    std::ifstream file(FOLDER + "ostrelprovider.lines.reg");
    std::string lines;
    for (std::string line; std::getline(file, line);) {
        lines += line.starts_with('#') ? "" : line + "\n";
    }
    EXPECT_EQ(as_lines, lines);
}

TEST(Registration, AMistakeIsToldWithItsLine) {
    const struct {
        const char* text;
        const char* error;
    } cases[] = {
        {"provider: X", "f:1: expected '[class]' first"},
        {"[A]\n  type: instances", "f:2: 'instances' is no type: expected instance, association or method"},
        {"[A]\nname: x", "f:2: 'name' is not known"},
        {"[A]\nx", "f:2: expected 'name: value', found 'x'"},
        {"[A", "f:1: expected '[class]', found '[A'"},
        {"[A]\ntype: instance", "f:2: A has no provider or no namespace"},
    };
    for (const auto& c : cases) {
        std::vector<Registration> list;
        std::string error;
        EXPECT_FALSE(read_registrations(c.text, "f", list, error));
        EXPECT_EQ(error, c.error);
    }
}

}  // namespace
