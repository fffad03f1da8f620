// The registration of the classes with their providers, as the shipped file has it: a section for each class
// with provider, location, type and namespace.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cimserver {

struct Registration {
    std::string class_name;
    std::string provider;
    std::string location;
    std::string name_space;
    bool instance = false;
    bool association = false;
    bool method = false;
};

// False: `error` is "FILE:LINE: what is wrong".
bool read_registrations(std::string_view text, const std::string& file, std::vector<Registration>& list,
                        std::string& error);
bool read_registration_file(const std::string& file, std::vector<Registration>& list, std::string& error);

}  // namespace cimserver
