#include "names.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>

namespace ostrel_simhost {

namespace {

constexpr std::size_t ADAPTERS_PER_VOLUME = 8;

template <class Map>
std::string keys_of(const Map& map) {
    std::string text;
    std::size_t shown = 0;
    for (const auto& [key, unused] : map) {
        if (++shown > 8) {
            return text + ", ...";
        }
        text += (text.empty() ? "" : ", ") + key;
    }
    return text.empty() ? "none is described" : text;
}

}  // namespace

bool is_ipv4(std::string_view text) {
    in_addr address{};
    return text.size() <= 15 && inet_pton(AF_INET, std::string(text).c_str(), &address) == 1;
}

std::string taken_text(int line) {
    return line < 0 ? "taken by another --set" : fmt::format("taken in line {}", line);
}

bool NameReader::take_address(const std::string& ip, int line, const std::string& key) {
    if (!is_ipv4(ip)) {
        problems_.add(line, key, "an IPv4 address", fmt::format("\"{}\"", ip));
        return false;
    }
    if (const auto [place, added] = names_.addresses.try_emplace(ip, line); !added) {
        problems_.add(line, key, "an address of its own", fmt::format("{}, {}", ip, taken_text(place->second)));
        return false;
    }
    return true;
}

std::string NameReader::new_address(Fields& fields, std::string_view key) {
    const std::string ip = fields.required_text(key, "an IPv4 address");
    if (!ip.empty()) {
        (void)take_address(ip, fields.find(key)->line, fields.key_name(key));
    }
    return ip;
}

std::vector<std::string> NameReader::new_addresses(Fields& fields, std::string_view key) {
    std::vector<std::string> ips;
    if (fields.find(key) == nullptr) {
        fields.complain_missing(key, "a list of IPv4 addresses");
        return ips;
    }
    for (const Word& word : fields.texts(key)) {
        if (take_address(word.text, word.line, fields.key_name(key))) {
            ips.push_back(word.text);
        }
    }
    if (const TomlValue* value = fields.find(key); value->kind == TomlValue::Kind::list && value->items.empty()) {
        fields.complain(key, "at least one IPv4 address");
    }
    return ips;
}

std::string NameReader::adapter(Fields& fields, std::string_view key) {
    std::string name = fields.required_text(key, "the name of an adapter");
    if (!name.empty() && !names_.adapters.contains(name)) {
        fields.complain(key, fmt::format("the name of an adapter ({})", keys_of(names_.adapters)));
    }
    return name;
}

std::vector<std::string> NameReader::adapter_list(Fields& fields, std::string_view key) {
    std::vector<std::string> result;
    for (const Word& word : fields.texts(key)) {
        if (!names_.adapters.contains(word.text)) {
            problems_.add(word.line, fields.key_name(key),
                          fmt::format("the name of an adapter ({})", keys_of(names_.adapters)),
                          fmt::format("\"{}\"", word.text));
        } else if (std::find(result.begin(), result.end(), word.text) == result.end()) {
            result.push_back(word.text);
        }
    }
    if (result.size() > ADAPTERS_PER_VOLUME) {
        fields.complain(key, fmt::format("at most {} adapters", ADAPTERS_PER_VOLUME));
    } else if (result.empty() && names_.adapters.size() > ADAPTERS_PER_VOLUME) {
        fields.complain(key, fmt::format("a list of at most {} of the host's adapters", ADAPTERS_PER_VOLUME));
    }
    return result;
}

std::string NameReader::group(Fields& fields, std::string_view key) {
    std::string name = fields.required_text(key, "the name of a group");
    if (!name.empty() && !names_.groups.contains(name)) {
        fields.complain(key, fmt::format("the name of a group ({})", keys_of(names_.groups)));
        return {};
    }
    return name;
}

std::vector<std::string> NameReader::array_list(Fields& fields, std::string_view key, const std::string& group) {
    std::vector<std::string> result;
    for (const Word& word : fields.texts(key)) {
        const auto arrays = names_.groups.find(group);
        if (arrays != names_.groups.end() && !arrays->second.contains(word.text)) {
            problems_.add(word.line, fields.key_name(key), fmt::format("the name of an array of group {}", group),
                          fmt::format("\"{}\"", word.text));
        } else if (std::find(result.begin(), result.end(), word.text) == result.end()) {
            result.push_back(word.text);
        }
    }
    return result;
}

std::pair<std::string, std::string> NameReader::array(Fields& fields, std::string_view key) {
    const std::string both = fields.required_text(key, "\"GROUP/ARRAY\"");
    if (both.empty()) {
        return {};
    }
    const std::size_t split = both.find('/');
    const auto group = names_.groups.find(both.substr(0, split));
    if (split == std::string::npos || group == names_.groups.end() || !group->second.contains(both.substr(split + 1))) {
        std::string some;
        for (const auto& [name, arrays] : names_.groups) {
            for (const std::string& array : arrays) {
                if (some.size() < 60) {
                    some += (some.empty() ? "" : ", ") + name + "/" + array;
                }
            }
        }
        fields.complain(key, fmt::format("\"GROUP/ARRAY\" ({})", some.empty() ? "none is described" : some));
        return {};
    }
    return {both.substr(0, split), both.substr(split + 1)};
}

std::string NameReader::volume(Fields& fields, std::string_view key) {
    std::string name = fields.required_text(key, "the name of a volume");
    if (!name.empty() && !names_.volumes.contains(name)) {
        fields.complain(key, fmt::format("the name of a volume ({})", keys_of(names_.volumes)));
        return {};
    }
    return name;
}

std::string NameReader::target(Fields& fields, std::string_view key) {
    std::string name = fields.required_text(key, "the name of a volume or group-scoped target");
    if (!name.empty() && !names_.is_target(name)) {
        fields.complain(key, fmt::format("the name of a volume ({}) or group-scoped target ({})",
                                         keys_of(names_.volumes), keys_of(names_.group_scoped_targets)));
        return {};
    }
    return name;
}

std::string NameReader::nic(Fields& fields, std::string_view key) {
    std::string ip = fields.required_text(key, "the address of a NIC");
    if (ip.empty()) {
        return ip;
    }
    std::string all;
    for (const auto& [name, nics] : names_.adapters) {
        if (std::find(nics.begin(), nics.end(), ip) != nics.end()) {
            return ip;
        }
        for (const std::string& nic : nics) {
            all += (all.empty() ? "" : ", ") + nic;
        }
    }
    fields.complain(key, fmt::format("the address of a NIC ({})", all.empty() ? "none is described" : all));
    return ip;
}

}  // namespace ostrel_simhost
