// Everything in a scenario that another part of it may refer to by name, and the checks of such references.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "fields.h"
#include "scenario.h"

namespace ostrel_simhost {

bool is_ipv4(std::string_view text);

// Where a name or an address was taken: "in line 12", or by an option of the command line.
std::string taken_text(int line);

struct Names {
    std::map<std::string, int, std::less<>> addresses;                              // where taken: line
    std::map<std::string, std::vector<std::string>, std::less<>> adapters;          // NICs
    std::map<std::string, std::set<std::string, std::less<>>, std::less<>> groups;  // arrays, added ones too
    std::map<std::string, int, std::less<>> volumes;
    std::optional<int> overridden_count;  // where a number of volumes was overridden, which is to blame for too many
    std::map<std::string, std::string, std::less<>> group_scoped_targets;  // group
    struct Owner {
        std::string name;
        std::string group;  // of a volume, whose target others of the group may share; empty: nobody may
    };
    std::map<std::string, Owner, std::less<>> iqns;

    bool is_target(std::string_view name) const {
        return volumes.contains(name) || group_scoped_targets.contains(name);
    }
};

// Reads values that are names or addresses and complains about those that don't fit.
class NameReader {
public:
    NameReader(Problems& problems, Names& names) : problems_(problems), names_(names) {}

    // An IPv4 address that nothing else of the site has, which is thereby taken.
    std::string new_address(Fields& fields, std::string_view key);
    std::vector<std::string> new_addresses(Fields& fields, std::string_view key);

    std::string adapter(Fields& fields, std::string_view key);
    std::vector<std::string> adapter_list(Fields& fields, std::string_view key);
    std::string group(Fields& fields, std::string_view key);
    std::vector<std::string> array_list(Fields& fields, std::string_view key, const std::string& group);
    // "group/array": both parts; empty ones after a complaint.
    std::pair<std::string, std::string> array(Fields& fields, std::string_view key);
    std::string volume(Fields& fields, std::string_view key);
    std::string target(Fields& fields, std::string_view key);
    std::string nic(Fields& fields, std::string_view key);

private:
    bool take_address(const std::string& ip, int line, const std::string& key);

    Problems& problems_;
    Names& names_;
};

}  // namespace ostrel_simhost
