#include "cimserver/registration.h"

#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace cimserver {

namespace {

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    return first == std::string::npos ? std::string() : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// Empty, or what is wrong.
std::string read_types(const std::string& words, Registration& entry) {
    const std::map<std::string, bool*> types = {
        {"instance", &entry.instance}, {"association", &entry.association}, {"method", &entry.method}};
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        const auto type = types.find(word);
        if (type == types.end()) {
            return "'" + word + "' is no type: expected instance, association or method";
        }
        *type->second = true;
    }
    return {};
}

std::string read_field(const std::string& line, Registration& entry) {
    const auto colon = line.find(':');
    if (colon == std::string::npos) {
        return "expected 'name: value', found '" + line + "'";
    }
    const std::string name = trimmed(line.substr(0, colon));
    const std::string value = trimmed(line.substr(colon + 1));
    if (name == "type") {
        return read_types(value, entry);
    }
    if (name == "unload") {
        return value == "never" ? std::string() : "'" + value + "' is not supported for unload: expected never";
    }
    const std::map<std::string, std::string*> fields = {
        {"provider", &entry.provider}, {"location", &entry.location}, {"namespace", &entry.name_space}};
    const auto field = fields.find(name);
    if (field == fields.end()) {
        return "'" + name + "' is not known";
    }
    *field->second = value;
    return {};
}

std::string read_line(const std::string& line, std::vector<Registration>& list) {
    if (line.empty() || line[0] == '#') {
        return {};
    }
    if (line[0] == '[') {
        if (line.back() != ']' || line.size() < 3) {
            return "expected '[class]', found '" + line + "'";
        }
        list.emplace_back().class_name = line.substr(1, line.size() - 2);
        return {};
    }
    return list.empty() ? "expected '[class]' first" : read_field(line, list.back());
}

}  // namespace

bool read_registrations(std::string_view text, const std::string& file, std::vector<Registration>& list,
                        std::string& error) {
    std::istringstream stream{std::string(text)};
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        if (const std::string wrong = read_line(trimmed(line), list); !wrong.empty()) {
            error = file + ":" + std::to_string(number) + ": " + wrong;
            return false;
        }
    }
    for (const Registration& entry : list) {
        if (entry.provider.empty() || entry.name_space.empty()) {
            error = file + ":" + std::to_string(number) + ": " + entry.class_name + " has no provider or no namespace";
            return false;
        }
    }
    return true;
}

bool read_registration_file(const std::string& file, std::vector<Registration>& list, std::string& error) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        error = file + ":0: can't be opened";
        return false;
    }
    const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    return read_registrations(text, file, list, error);
}

}  // namespace cimserver
