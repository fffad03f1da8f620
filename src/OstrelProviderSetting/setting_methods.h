// Methods of the class OSTREL_ConnectionServiceSetting. They run concurrently on the CIM server's threads.
// A method's status carries a message for the client; there is no method return value.
#pragma once

#include "cmpi/cmpi.h"

// Entry point of the methods "setvalue" and "renewiscsiconnections", in any case. For any other name: NOT_FOUND with
// the name as message.
CMPIStatus OstrelProviderSettingInvokeMethod(CMPIMethodMI*, const CMPIContext*, const CMPIResult*,
                                             const CMPIObjectPath*, const char* method, const CMPIArgs* in,
                                             CMPIArgs* out);

// "setvalue": writes the setting "name" (string) with "value" (uint32) to the configuration file. Logs for
// `operation`. OK; INVALID_PARAMETER or NOT_FOUND if an argument is missing or invalid.
CMPIStatus set_value(const char* operation, const CMPIBroker* broker, const CMPIArgs* in);

// "renewiscsiconnections": renews the connections of "targets" (string array), or changes their digests if "paramname"
// (string or null) says so. Meanwhile the worker skips its passes. Holds conn_renew_mutex and blocks until it is done.
// OK with the result in the output argument oxd_status and, for a failure, its text as message; INVALID_PARAMETER,
// without an output, if an argument is missing or invalid.
CMPIStatus OstrelHandleRenewIscsiConnections(const CMPIBroker* broker, const CMPIArgs* in, CMPIArgs* out);
