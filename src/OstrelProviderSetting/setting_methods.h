// Methods of the class OSTREL_ConnectionServiceSetting. They run on the CIM server's threads, several at once.
// A method's status carries a message for the client; there is no method return value.
#pragma once

#include "cmpi/cmpi.h"

// Method entry: "setvalue" and "renewiscsiconnections", without regard to case. Any other name: NOT_FOUND
// with the name as message.
CMPIStatus OstrelProviderSettingInvokeMethod(CMPIMethodMI*, const CMPIContext*, const CMPIResult*,
                                             const CMPIObjectPath*, const char* method, const CMPIArgs* in,
                                             CMPIArgs* out);

// "setvalue": writes the setting "name" (string) with "value" (uint32) into the configuration file. Logs for
// `operation`. OK; INVALID_PARAMETER or NOT_FOUND when an argument is missing or refused.
CMPIStatus set_value(const char* operation, const CMPIBroker* broker, const CMPIArgs* in);

// "renewiscsiconnections": renews the connections of "targets" (string array), or changes their digests when
// "paramname" (string or null) says so, with the worker held off. Takes conn_renew_mutex for the whole of it
// and blocks until it is done. OK with the outcome in the output argument oxd_status and, for a failure, its
// text as message; INVALID_PARAMETER, without an output, when an argument is missing or refused.
CMPIStatus OstrelHandleRenewIscsiConnections(const CMPIBroker* broker, const CMPIArgs* in, CMPIArgs* out);
