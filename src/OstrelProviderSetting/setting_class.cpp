#include "OstrelProviderSetting/setting_class.h"

#include <atomic>
#include <cstdint>

#include "OstrelProvider/config.h"
#include "OstrelProvider/log.h"
#include "OstrelProvider/wait_debug.h"
#include "common/cmpi_objects.h"

namespace {

// An attached debugger clears it.
std::atomic<std::int32_t> waitDebug{0};

const char* filterKeys[] = {"name", nullptr};

// The settings with the file's values, or with the defaults if it cannot be read. All values are from one read,
// whatever other threads read or set meanwhile.
void read_settings(const char* operation, SettingEntry (&settings)[NUM_SETTINGS]) {
    ConfigValues values;
    const oxr::MutexLock lock(config_file_mutex);
    if (OSTREL_GetConfigValues(&values, CONFIG_NORMAL) != 0) {
        OXR_ERROR_IN(operation, "Failed to get values from the config file. Using default value.");
    }
    refresh_settings(values, settings);
}

CMPIInstance* new_enumerated_instance(const CMPIBroker* broker, const SettingEntry& setting, bool has_limits,
                                      const char** properties) {
    CMPIInstance* const instance = oxr::new_instance(broker, new_setting_path(broker, setting), properties, filterKeys);
    oxr::set_text(instance, "name", setting.name);
    oxr::set_text(instance, "InstanceId", setting.InstanceId);
    oxr::set_text(instance, "description", setting.description);
    oxr::set_uint32(instance, "value", setting.value);
    if (has_limits) {
        oxr::set_uint32(instance, "minimum", setting.minimum);
        oxr::set_uint32(instance, "maximum", setting.maximum);
    }
    return instance;
}

}  // namespace

CMPIObjectPath* new_setting_path(const CMPIBroker* broker, const SettingEntry& setting, const char* id_key) {
    CMPIObjectPath* const path = oxr::new_path(broker, SETTING_CLASS);
    oxr::add_text_key(path, "name", setting.name);
    oxr::add_text_key(path, id_key, setting.InstanceId);
    return path;
}

CMPIStatus OstrelProviderSettingEnumInstanceNames(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                                  const CMPIObjectPath* path) {
    wait_for_debugger(waitDebug);
    const CMPIBroker* const broker = setting_broker();
    if (!oxr::is_a(broker, path, "CIM_SettingData")) {
        return CMReturn(CMPI_RC_ERR_INVALID_CLASS);
    }
    bool all_returned = true;
    for (int i = 0; i < NUM_SETTINGS && all_returned; ++i) {
        all_returned = oxr::return_path(result, new_setting_path(broker, setting_at(i)));
    }
    return oxr::end_results(result, all_returned);
}

CMPIStatus OstrelProviderSettingEnumInstances(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                              const CMPIObjectPath* path, const char** properties) {
    wait_for_debugger(waitDebug);
    const CMPIBroker* const broker = setting_broker();
    if (!oxr::is_a(broker, path, "CIM_SettingData")) {
        return CMReturn(CMPI_RC_ERR_INVALID_CLASS);
    }
    SettingEntry settings[NUM_SETTINGS];
    read_settings(__func__, settings);
    bool all_returned = true;
    for (int i = 0; i < NUM_SETTINGS && all_returned; ++i) {
        all_returned = oxr::return_instance(
            result, new_enumerated_instance(broker, settings[i], i == SETTING_VOL_SESSIONS, properties));
    }
    return oxr::end_results(result, all_returned);
}

// Ignores the requested keys: always "interval", with its last known value. Here clients expect the second key in this
// spelling.
CMPIStatus OstrelProviderSettingGetInstance(CMPIInstanceMI*, const CMPIContext*, const CMPIResult* result,
                                            const CMPIObjectPath*, const char** properties) {
    const CMPIBroker* const broker = setting_broker();
    const SettingEntry setting = setting_at(SETTING_INTERVAL);
    CMPIInstance* const instance =
        oxr::new_instance(broker, new_setting_path(broker, setting, "instanceId"), properties, filterKeys);
    oxr::set_text(instance, "name", setting.name);
    oxr::set_text(instance, "InstanceId", setting.InstanceId);
    oxr::set_uint32(instance, "value", setting.value);
    oxr::set_text(instance, "name", setting.name);
    oxr::set_text(instance, "description", setting.description);
    return oxr::end_results(result, oxr::return_instance(result, instance));
}
