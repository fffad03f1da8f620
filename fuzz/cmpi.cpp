// Operations on the providers with arguments, object paths and property lists of any content: each answers a status
// that it can give, returns only what is of its classes, and leaves the configuration file whole.
#include <algorithm>

#include "OstrelProvider/log_level.h"
#include "support/host.h"
#include "support/input.h"
#include "support/providers.h"
#include "tests/support/cim.h"

namespace {

using namespace cimserver;
using namespace testing_support;
using fuzz::Input;
using fuzz::require;

// --- anything -------------------------------------------------------------------------------------------------

constexpr const char* WORDS[] = {
    "name",
    "value",
    "targets",
    "paramname",
    "paramvalue",
    "InstanceId",
    "ManagedElement",
    "SettingData",
    "interval",
    "vol_sessions",
    "OSTREL Connection Service",
    "OSTREL_ConnectionService",
    "OSTREL_ConnectionServiceSetting",
    "OSTREL_ConnectionServiceAssocSetting",
    "OSTREL_RegisteredProfile",
    "CIM_ManagedElement",
    "CIM_ElementSettingData",
    "CIM_SettingData",
    "CIM_Service",
    "iqn.2012-07.com.ostrel:dyn-0",
    "iqn.2012-07.com.ostrel:sta-0",
    "iqn.gst",
    "iqn.none",
    "iscsidigest",
    "enable",
    "disable",
    "startservice",
    "stopservice",
    "setvalue",
    "renewiscsiconnections",
    "",
};

std::string any_text(Input& input) {
    const unsigned pick = input.below(std::size(WORDS) + 2);
    return pick < std::size(WORDS) ? WORDS[pick] : input.text(pick == std::size(WORDS) ? 30 : 600);
}

constexpr CMPIType TYPES[] = {CMPI_boolean, CMPI_uint8,  CMPI_uint16, CMPI_uint32, CMPI_uint64, CMPI_sint8,
                              CMPI_sint16,  CMPI_sint32, CMPI_sint64, CMPI_real32, CMPI_real64, CMPI_string,
                              CMPI_ref,     CMPI_string, CMPI_string, CMPI_uint32};

ObjectPath any_path(Input& input, int depth);

CimValue any_single(Input& input, CMPIType type, int depth) {
    if (input.below(8) == 7) {
        return null_value(type);
    }
    if (type == CMPI_boolean) {
        return {type, input.flag()};
    }
    if (is_unsigned(type)) {
        return {type, std::uint64_t{input.number<std::uint32_t>()}};
    }
    if (is_signed(type)) {
        return {type, std::int64_t{input.number<std::int32_t>()}};
    }
    if (type == CMPI_real32 || type == CMPI_real64) {
        return {type, static_cast<double>(input.number<std::int32_t>())};
    }
    return type == CMPI_ref ? path_value(any_path(input, depth + 1)) : text_value(any_text(input));
}

CimValue any_value(Input& input, int depth) {
    CMPIType type = TYPES[input.below(std::size(TYPES))];
    if (depth > 3 && type == CMPI_ref) {
        type = CMPI_string;
    }
    if (input.below(4) != 0) {
        return any_single(input, type, depth);
    }
    const auto array = static_cast<CMPIType>(type | CMPI_ARRAY);
    if (input.below(8) == 7) {
        return null_value(array);
    }
    ValueList list;
    for (unsigned n = input.below(4); n > 0; --n) {
        list.push_back(any_single(input, type, depth));
    }
    return {array, std::move(list)};
}

NamedList any_list(Input& input, int depth) {
    NamedList list;
    for (unsigned n = input.below(6); n > 0; --n) {
        const std::string name = any_text(input);
        set(list, name, any_value(input, depth));
    }
    return list;
}

ObjectPath any_path(Input& input, int depth) {
    ObjectPath path;
    path.name_space = input.below(4) == 3 ? any_text(input) : "ostrel/cimv2";
    path.class_name = any_text(input);
    path.keys = any_list(input, depth);
    return path;
}

// Null: all of them.
PropertyList any_names(Input& input) {
    if (input.flag()) {
        return std::nullopt;
    }
    std::vector<std::string> names(input.below(5));
    std::generate(names.begin(), names.end(), [&] { return any_text(input); });
    return names;
}

// Empty: not given.
std::string any_name(Input& input) {
    return input.below(3) == 0 ? "" : any_text(input);
}

// --- one operation ----------------------------------------------------------------------------------------------

constexpr std::string_view CLASSES[] = {SERVICE, SETTING, ASSOCIATION, "OSTREL_RegisteredProfile"};

void require_answer(const ProviderAnswer& answer, std::initializer_list<CMPIrc> possible) {
    require(std::find(possible.begin(), possible.end(), answer.code) != possible.end(),
            "a status that the operation can't give", std::to_string(answer.code));
    std::vector<ObjectPath> paths = answer.paths;
    for (const Instance& each : answer.instances) {
        paths.push_back(each.path);
    }
    for (const ObjectPath& each : paths) {
        require(each.name_space == "ostrel/cimv2", "of another namespace", each.name_space);
        require(std::find(CLASSES, CLASSES + 3, each.class_name) != CLASSES + 3, "of another class", each.class_name);
    }
}

void use_instances(const Broker& broker, Input& input, const ObjectPath& path) {
    const PropertyList names = any_names(input);
    switch (input.below(7)) {
        case 0:
            return require_answer(broker.enumerate_instance_names(path), {CMPI_RC_OK});
        case 1:
            return require_answer(broker.enumerate_instances(path, names), {CMPI_RC_OK});
        default:
            return require_answer(broker.get_instance(path, names), {CMPI_RC_OK, CMPI_RC_ERR_NOT_FOUND});
    }
}

void walk_associations(const Broker& broker, Input& input, const ObjectPath& path) {
    const PropertyList names = any_names(input);
    const AssociationFilter filter = {any_name(input), any_name(input), any_name(input), any_name(input)};
    switch (input.below(4)) {
        case 0:
            return require_answer(broker.associators(path, filter, names), {CMPI_RC_OK});
        case 1:
            return require_answer(broker.associator_names(path, filter), {CMPI_RC_OK});
        case 2:
            return require_answer(broker.references(path, filter, names), {CMPI_RC_OK});
        default:
            return require_answer(broker.reference_names(path, filter), {CMPI_RC_OK});
    }
}

void call_method(const Broker& broker, Input& input, const ObjectPath& path) {
    const std::string method = any_text(input);
    const NamedList in = input.below(16) == 15 ? NamedList() : any_list(input, 0);
    const ProviderAnswer answer = broker.invoke_method(path, method, in);
    if (path.class_name == SERVICE) {
        require_answer(answer, {CMPI_RC_OK});
    } else {
        require_answer(answer, {CMPI_RC_OK, CMPI_RC_ERR_INVALID_PARAMETER, CMPI_RC_ERR_NOT_FOUND});
        // Of an unknown method, its name is told, which ends at a NUL.
        require(answer.code == CMPI_RC_OK || !answer.message.empty() || method.c_str()[0] == '\0',
                "a failure without a message");
    }
    const bool renews = path.class_name == SETTING && same_name(method, "renewiscsiconnections");
    require(answer.out.size() == (renews && answer.code == CMPI_RC_OK ? 1U : 0U), "an output argument too many or few");
    if (!answer.out.empty()) {
        const CimValue& told = answer.out[0].value;
        const auto* const number = std::get_if<std::uint64_t>(&told.data);
        require(told.type == CMPI_uint32 && number != nullptr && *number <= 10, "no OXD status");
        require(*number == 0 || !answer.message.empty(), "a failed renewal without a message");
    }
}

void operate(const Broker& broker, Input& input) {
    ObjectPath path = any_path(input, 0);
    path.name_space = "ostrel/cimv2";  // nobody is asked in another one
    const unsigned kind = input.below(9);
    if (kind < 4) {
        path.class_name = CLASSES[kind];
        use_instances(broker, input, path);
    } else if (kind < 7) {
        path.class_name = kind == 4 ? SERVICE : SETTING;
        call_method(broker, input, path);
    } else {
        walk_associations(broker, input, path);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    fuzz::Providers& providers = fuzz::Providers::get();
    log_level = input.flag() ? 2 : 0;
    const unsigned config = input.below(8);
    providers.begin(fuzz::config_of(config), input.below(8) == 7);
    for (unsigned calls = 1 + input.below(3); calls > 0; --calls) {
        operate(providers.broker(), input);
    }
    providers.finish();
    return 0;
}
