// The class definitions and the registration: as shipped, and with mistakes.
#include "cimserver/mof/reader.h"
#include "cimserver/registration.h"
#include "pairs.h"

namespace {

using namespace cimserver;

TEST(Mof, AMistakeIsToldWithItsLine) {
    expect_pairs("mistakes.txt", [](const std::string& text) {
        std::string of_classes;
        std::string of_registration;
        Schema schema;
        std::vector<Registration> list;
        EXPECT_FALSE(read_mof(text, "mof", schema, of_classes) ||
                     read_registrations(text, "reg", list, of_registration))
            << text;
        return of_classes + "\n" + of_registration;
    });
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
