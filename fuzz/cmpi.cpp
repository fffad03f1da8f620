// Arguments, object paths and property lists of any content, given to every function of every management interface:
// each answers a status that the operation can give, returns only what is of its classes, and leaves the
// configuration file whole.
#include <algorithm>
#include <initializer_list>

#include "OstrelAssocProvider/association_class.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/service_class.h"
#include "OstrelProviderSetting/setting_class.h"
#include "OstrelRegisteredProfileProvider/profile_provider.h"
#include "cimserver/broker/objects.h"
#include "support/host.h"
#include "support/input.h"
#include "support/providers.h"

namespace {

using namespace cimserver;
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

Value any_single(Input& input, CMPIType type, int depth) {
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

Value any_value(Input& input, int depth) {
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

// Names ended by a null, or a null for all.
class AnyNames {
public:
    explicit AnyNames(Input& input) : all_(input.flag()) {
        for (unsigned n = all_ ? 0 : input.below(5); n > 0; --n) {
            texts_.push_back(any_text(input));
        }
        for (const std::string& each : texts_) {
            names_.push_back(each.c_str());
        }
        names_.push_back(nullptr);
    }
    const char** get() { return all_ ? nullptr : names_.data(); }

private:
    bool all_;
    std::vector<std::string> texts_;
    std::vector<const char*> names_;
};

class AnyName {
public:
    explicit AnyName(Input& input) : null_(input.below(3) == 0), text_(null_ ? std::string() : any_text(input)) {}
    const char* get() const { return null_ ? nullptr : text_.c_str(); }

private:
    bool null_;
    std::string text_;
};

// --- one call -------------------------------------------------------------------------------------------------

struct Call {
    Input& input;
    CMPIContext* context;
    ResultObject* result;
    CMPIObjectPath* path;
};

void require_status(const CMPIStatus& status, std::initializer_list<CMPIrc> possible) {
    require(std::find(possible.begin(), possible.end(), status.rc) != possible.end(),
            "a status that the operation can't give", std::to_string(status.rc));
    require(status.msg == nullptr || CMGetCharPtr(status.msg) != nullptr, "a message without a text");
}

void require_results(const ResultObject& result) {
    static constexpr std::string_view CLASSES[] = {"OSTREL_ConnectionService", "OSTREL_ConnectionServiceSetting",
                                                   "OSTREL_ConnectionServiceAssocSetting"};
    for (const Value& each : result.values) {
        const auto* const path = std::get_if<std::shared_ptr<const ObjectPath>>(&each.data);
        const auto* const instance = std::get_if<std::shared_ptr<const Instance>>(&each.data);
        require(path != nullptr || instance != nullptr, "neither a path nor an instance is returned");
        const ObjectPath& of = path != nullptr ? **path : (*instance)->path;
        require(of.name_space == "ostrel/cimv2", "of another namespace", of.name_space);
        require(std::find(std::begin(CLASSES), std::end(CLASSES), of.class_name) != std::end(CLASSES),
                "of another class", of.class_name);
    }
}

enum class Provider { service, setting, association, profile };

void call_instance(const Call& call, CMPIInstanceMI* mi, Provider provider) {
    AnyNames names(call.input);
    const bool tests_class = provider == Provider::service || provider == Provider::setting;
    const CMPIrc other_class = tests_class ? CMPI_RC_ERR_INVALID_CLASS : CMPI_RC_OK;
    switch (call.input.below(7)) {
        case 0:
            return require_status(mi->ft->enumerateInstanceNames(mi, call.context, call.result, call.path),
                                  {CMPI_RC_OK, other_class});
        case 1:
            return require_status(mi->ft->enumerateInstances(mi, call.context, call.result, call.path, names.get()),
                                  {CMPI_RC_OK, other_class});
        case 2:
            return require_status(mi->ft->getInstance(mi, call.context, call.result, call.path, names.get()),
                                  {CMPI_RC_OK, provider == Provider::association ? CMPI_RC_ERR_NOT_FOUND : CMPI_RC_OK});
        case 3:
            return require_status(mi->ft->deleteInstance(mi, call.context, call.result, call.path),
                                  {CMPI_RC_ERR_NOT_SUPPORTED});
        case 4:
            return require_status(
                mi->ft->execQuery(mi, call.context, call.result, call.path, any_text(call.input).c_str(), "WQL"),
                {CMPI_RC_ERR_NOT_SUPPORTED});
        default: {
            auto* const instance = make_object<InstanceObject>(
                Instance{any_path(call.input, 0), any_list(call.input, 0), std::nullopt}, nullptr);
            require_status(mi->ft->createInstance(mi, call.context, call.result, call.path, instance),
                           {CMPI_RC_ERR_NOT_SUPPORTED});
            return require_status(
                mi->ft->modifyInstance(mi, call.context, call.result, call.path, instance, names.get()),
                {CMPI_RC_ERR_NOT_SUPPORTED});
        }
    }
}

void call_association(const Call& call, CMPIAssociationMI* mi) {
    AnyNames names(call.input);
    const AnyName first(call.input);
    const AnyName second(call.input);
    const AnyName role(call.input);
    const AnyName result_role(call.input);
    switch (call.input.below(4)) {
        case 0:
            return require_status(mi->ft->associators(mi, call.context, call.result, call.path, first.get(),
                                                      second.get(), role.get(), result_role.get(), names.get()),
                                  {CMPI_RC_OK});
        case 1:
            return require_status(mi->ft->associatorNames(mi, call.context, call.result, call.path, first.get(),
                                                          second.get(), role.get(), result_role.get()),
                                  {CMPI_RC_OK});
        case 2:
            return require_status(
                mi->ft->references(mi, call.context, call.result, call.path, first.get(), role.get(), names.get()),
                {CMPI_RC_OK});
        default:
            return require_status(
                mi->ft->referenceNames(mi, call.context, call.result, call.path, first.get(), role.get()),
                {CMPI_RC_OK});
    }
}

void require_renewal_answer(const CMPIStatus& status, const NamedList& out) {
    const Value* const told = find(out, "oxd_status");
    require((status.rc == CMPI_RC_OK) == (told != nullptr), "oxd_status and the status differ");
    if (told != nullptr) {
        const auto* const number = std::get_if<std::uint64_t>(&told->data);
        require(told->type == CMPI_uint32 && number != nullptr && *number <= 10, "no OXD status");
        require(*number == 0 || status.msg != nullptr, "a failed renewal without a message");
    }
}

void call_method(const Call& call, CMPIMethodMI* mi, Provider provider) {
    const std::string method = any_text(call.input);
    const bool with_arguments = call.input.below(16) != 15;
    auto* const in = make_object<ArgsObject>(any_list(call.input, 0));
    auto* const out = make_object<ArgsObject>(NamedList());
    const CMPIStatus status = mi->ft->invokeMethod(mi, call.context, call.result, call.path, method.c_str(),
                                                   with_arguments ? in : nullptr, with_arguments ? out : nullptr);
    if (provider == Provider::service) {
        require_status(status, {CMPI_RC_OK});
        require(out->args.empty(), "an output argument of the service");
        return;
    }
    require_status(status, {CMPI_RC_OK, CMPI_RC_ERR_INVALID_PARAMETER, CMPI_RC_ERR_NOT_FOUND});
    require(status.rc == CMPI_RC_OK || status.msg != nullptr, "a failure without a message");
    if (with_arguments && same_name(method, "renewiscsiconnections")) {
        require_renewal_answer(status, out->args);
    } else {
        require(out->args.empty(), "an output argument");
    }
}

// The interfaces of all factories.
struct Interfaces {
    explicit Interfaces(const CMPIBroker* broker, const CMPIContext* context)
        : service(OstrelProvider_Create_InstanceMI(broker, context, nullptr)),
          service_methods(OstrelProvider_Create_MethodMI(broker, context, nullptr)),
          setting(OstrelProviderSetting_Create_InstanceMI(broker, context, nullptr)),
          setting_methods(OstrelProviderSetting_Create_MethodMI(broker, context, nullptr)),
          association(OstrelAssocProvider_Create_InstanceMI(broker, context, nullptr)),
          associations(OstrelAssocProvider_Create_AssociationMI(broker, context, nullptr)),
          profile(OstrelProfileProvider_Create_InstanceMI(broker, context, nullptr)) {}

    CMPIInstanceMI* service;
    CMPIMethodMI* service_methods;
    CMPIInstanceMI* setting;
    CMPIMethodMI* setting_methods;
    CMPIInstanceMI* association;
    CMPIAssociationMI* associations;
    CMPIInstanceMI* profile;
};

void call_any(const Broker& broker, Input& input) {
    const Request request;
    auto* const context = make_object<ContextObject>(NamedList());
    static const Interfaces interfaces(broker.handle(), context);
    const Call call{input, context, make_object<ResultObject>(), make_object<PathObject>(any_path(input, 0))};
    switch (input.below(9)) {
        case 0:
            call_instance(call, interfaces.service, Provider::service);
            break;
        case 1:
            call_instance(call, interfaces.setting, Provider::setting);
            break;
        case 2:
            call_instance(call, interfaces.association, Provider::association);
            break;
        case 3:
            call_instance(call, interfaces.profile, Provider::profile);
            break;
        case 4:
            return call_method(call, interfaces.service_methods, Provider::service);
        case 5:
        case 6:
            return call_method(call, interfaces.setting_methods, Provider::setting);
        default:
            call_association(call, interfaces.associations);
    }
    require_results(*call.result);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    fuzz::Providers& providers = fuzz::Providers::get();
    log_level = input.flag() ? 2 : 0;
    const unsigned config = input.below(8);
    providers.begin(fuzz::config_of(config), input.below(8) == 7);
    for (unsigned calls = 1 + input.below(3); calls > 0; --calls) {
        call_any(providers.broker(), input);
    }
    providers.finish();
    return 0;
}
