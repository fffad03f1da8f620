#include "OstrelProviderSetting/setting_methods.h"

#include "OstrelProvider/log.h"
#include "OstrelProviderSetting/setting_class.h"
#include "common/blank.h"
#include "common/cmpi_arguments.h"

CMPIStatus OstrelProviderSettingInvokeMethod(CMPIMethodMI*, const CMPIContext*, const CMPIResult*,
                                             const CMPIObjectPath*, const char* method, const CMPIArgs* in,
                                             CMPIArgs* out) {
    const CMPIBroker* const broker = setting_broker();
    const char* const name = method != nullptr ? method : "";
    OXR_INFO("methodName=%s", name);
    if (oxr::equal_ignoring_case(name, "setvalue")) {
        return set_value(__func__, broker, in);
    }
    if (oxr::equal_ignoring_case(name, "renewiscsiconnections")) {
        return OstrelHandleRenewIscsiConnections(broker, in, out);
    }
    OXR_ERROR("method %s is not supported", name);
    return oxr::status_with_message(broker, CMPI_RC_ERR_NOT_FOUND, name);
}
