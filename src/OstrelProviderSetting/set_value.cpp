#include <cstdint>

#include "OstrelProvider/config.h"
#include "OstrelProvider/log.h"
#include "OstrelProviderSetting/config_writer.h"
#include "OstrelProviderSetting/setting_methods.h"
#include "OstrelProviderSetting/setting_table.h"
#include "common/cmpi_arguments.h"

namespace {

// The range that clients may set, whatever limits the file has.
constexpr std::uint32_t min_settable_sessions = 2;
constexpr std::uint32_t max_settable_sessions = 8;

// The result of checking an argument: OK, or the code and message for the client.
struct Check {
    CMPIrc code;
    const char* message;
};
constexpr Check accepted{CMPI_RC_OK, nullptr};

Check check_name(const char* operation, const CMPIArgs* in, int& index) {
    const char* const name = oxr::text_of(oxr::get_argument(in, "name"));
    if (name == nullptr) {
        OXR_ERROR_IN(operation, "setvalue - invalid parameter missing attribute name\n");
        return {CMPI_RC_ERR_INVALID_PARAMETER, "SetValue parameter \"name\" not specified"};
    }
    OXR_INFO_IN(operation, "setvalue - inputName=%s", name);
    if (name[0] == '\0') {
        OXR_ERROR_IN(operation, "name arg is not specified\n");
        return {CMPI_RC_ERR_NOT_FOUND, "arg parameter for \"name\" is not specified"};
    }
    index = find_setting(name);
    if (index < 0) {
        OXR_ERROR_IN(operation, "inputName can be only interval or vol_sessions\n");
        return {CMPI_RC_ERR_NOT_FOUND, "arg parameter for \"name\" can be \"interval\" or \"vol_sessions\""};
    }
    return accepted;
}

Check check_value(const char* operation, const CMPIArgs* in, std::uint32_t& value) {
    const CMPIData argument = oxr::get_argument(in, "value");
    if (argument.type != CMPI_uint32 || !oxr::has_value(argument)) {
        OXR_ERROR_IN(operation, "invalid parameter, missing \"value\".\n");
        return {CMPI_RC_ERR_INVALID_PARAMETER, "SetValue parameter \"value\" not specified"};
    }
    value = argument.value.uint32;
    OXR_INFO_IN(operation, "setvalue - inputValue=%d", static_cast<int>(value));
    return accepted;
}

Check check_range(const char* operation, int index, std::uint32_t value) {
    if (index == SETTING_INTERVAL && (value < MIN_INTERVAL || value > MAX_INTERVAL)) {
        OXR_ERROR_IN(operation, "inputValue for interval is out of range %d-%d\n", static_cast<int>(MIN_INTERVAL),
                     static_cast<int>(MAX_INTERVAL));
        return {CMPI_RC_ERR_INVALID_PARAMETER, "SetValue parameter \"value\" for interval is out of range"};
    }
    if (index == SETTING_VOL_SESSIONS && (value < min_settable_sessions || value > max_settable_sessions)) {
        OXR_ERROR_IN(operation, "inputValue for vol_sessions is out of range %d - %d\n",
                     static_cast<int>(min_settable_sessions), static_cast<int>(max_settable_sessions));
        return {CMPI_RC_ERR_INVALID_PARAMETER, "SetValue parameter \"value\" for vol_sessions is out of range"};
    }
    return accepted;
}

Check check_arguments(const char* operation, const CMPIArgs* in, int& index, std::uint32_t& value) {
    Check check = check_name(operation, in, index);
    if (check.code == CMPI_RC_OK) {
        check = check_value(operation, in, value);
    }
    if (check.code == CMPI_RC_OK) {
        check = check_range(operation, index, value);
    }
    return check;
}

// Writes the setting to the file and keeps its other values. Only the log reports a failure, not the method. A file
// that exists but was refused is not overwritten: its values would be lost.
void write_value(const char* operation, int index, std::uint32_t value) {
    ConfigValues values;
    const oxr::MutexLock lock(config_file_mutex);
    const ConfigRead read = read_config_file(values, CONFIG_NORMAL);
    if (read != ConfigRead::read) {
        OXR_ERROR_IN(operation, "Failed to get values from the config file. Using default values.");
    }
    set_setting_value(index, value);
    if (read == ConfigRead::refused) {
        OXR_ERROR_IN(operation, "%s", "failed to set values in oxr.conf");
        return;
    }
    (index == SETTING_INTERVAL ? values.interval : values.vol_sessions) = value;
    (void)set_value_in_file(&values);  // logs its failure
}

}  // namespace

CMPIStatus set_value(const char* operation, const CMPIBroker* broker, const CMPIArgs* in) {
    int index = -1;
    std::uint32_t value = 0;
    const Check check = check_arguments(operation, in, index, value);
    if (check.code != CMPI_RC_OK) {
        return oxr::status_with_message(broker, check.code, check.message);
    }
    write_value(operation, index, value);
    return oxr::status_with_message(broker, CMPI_RC_OK, "Succeeded!");
}
