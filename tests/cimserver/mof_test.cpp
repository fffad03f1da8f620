// The class definitions and the registration: as shipped, and with mistakes.
#include <gtest/gtest.h>

#include <fstream>

#include "cimserver/mof/reader.h"
#include "cimserver/registration.h"

namespace {

using namespace cimserver;

std::string mistake_in_classes(const char* text) {
    Schema schema;
    std::string error;
    EXPECT_FALSE(read_mof(text, "f", schema, error)) << text;
    return error;
}

std::string mistake_in_registration(const char* text) {
    std::vector<Registration> list;
    std::string error;
    EXPECT_FALSE(read_registrations(text, "f", list, error)) << text;
    return error;
}

TEST(Mof, AMistakeIsToldWithItsLine) {
    const struct {
        std::string (*mistake_in)(const char* text);
        const char* text;
        const char* error;
    } cases[] = {
        {mistake_in_classes, "class", "f:1: expected a class name, found the end of the file"},
        {mistake_in_classes, "class A {\n string a\n};", "f:3: expected ';', found '}'"},
        {mistake_in_classes, "class A {\n strin a;};", "f:2: 'strin' is no type"},
        {mistake_in_classes, "class A {};\nclass a {};", "f:2: class a is defined twice"},
        {mistake_in_classes, "class A {string a;\nuint8 A;};", "f:2: A stands here twice"},
        {mistake_in_classes, "class A {uint32 f(string a,\nstring a);};", "f:2: a stands here twice"},
        {mistake_in_classes, "class A : A {};", "f:1: superclass A of A is not known"},
        {mistake_in_classes, "[Key, key] class A {};", "f:1: qualifier key stands here twice"},
        {mistake_in_classes, "class A { uint8 a = 256; };", "f:1: '256' is no uint8"},
        {mistake_in_classes, "class A { [MaxLen(] string a; };", "f:1: expected a value, found ']'"},
        {mistake_in_classes, "/* for ever\n", "f:1: can't be read: a comment without an end"},
        {mistake_in_classes, "[D(\"x\n\")] class A {};", "f:1: can't be read: a text without its closing quote"},
        {mistake_in_classes, "instance of A {};", "f:1: expected a class, found instance"},
        {mistake_in_classes, "class A { string a; } \x01", "f:1: can't be read: '\x01'"},
        {mistake_in_classes, "Qualifier Key : boolean",
         "f:1: expected ';' after a qualifier declaration, found the end of the file"},
        {mistake_in_registration, "provider: X", "f:1: expected '[class]' first"},
        {mistake_in_registration, "[A]\n type: x", "f:2: 'x' is no type: expected instance, association or method"},
        {mistake_in_registration, "[A]\nunload: x", "f:2: 'x' is not supported for unload: expected never"},
        {mistake_in_registration, "[A]\nname: x", "f:2: 'name' is not known"},
        {mistake_in_registration, "[A]\nx", "f:2: expected 'name: value', found 'x'"},
        {mistake_in_registration, "[A", "f:1: expected '[class]', found '[A'"},
        {mistake_in_registration, "[A]\ntype: instance", "f:2: A has no provider or no namespace"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.mistake_in(c.text), c.error);
    }
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
        EXPECT_EQ(value ? value_text(*value) : "refused", c.read != nullptr ? c.read : "refused") << c.text;
    }
}

TEST(Registration, TheTwoShippedFormsSayTheSame) {
    const std::string folder = OXR_SOURCE_DIR "/cim/";
    std::vector<Registration> list;
    std::string error;
    ASSERT_TRUE(read_registration_file(folder + "ostrelprovider.sections.reg", list, error)) << error;
    std::string as_lines;
    for (const Registration& entry : list) {
        as_lines += entry.class_name + " " + entry.name_space + " " + entry.provider + " " + entry.location +
                    (entry.instance ? " instance" : "") + (entry.association ? " association" : "") +
                    (entry.method ? " method" : "") + "\n";
    }
    std::ifstream file(folder + "ostrelprovider.lines.reg");
    std::string lines;
    for (std::string line; std::getline(file, line);) {
        lines += line.starts_with('#') ? "" : line + "\n";
    }
    EXPECT_EQ(as_lines, lines);
}

}  // namespace
