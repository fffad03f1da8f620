// The host library's symbols for the linker, as a host without adapters has them: lists are empty.
#include "ima/ima.h"

namespace {

IMA_STATUS give_empty(IMA_OID_LIST** list) {
    static IMA_OID_LIST empty{};
    *list = &empty;
    return IMA_STATUS_SUCCESS;
}

}  // namespace

extern "C" {

IMA_STATUS IMA_GetLhbaOidList(IMA_OID_LIST** list) {
    return give_empty(list);
}
IMA_STATUS IMA_GetPhbaOidList(IMA_OID_LIST** list) {
    return give_empty(list);
}
IMA_STATUS IMA_GetTargetOidList(IMA_OID, IMA_OID_LIST** list) {
    return give_empty(list);
}
IMA_STATUS IMA_GetTargetProperties(IMA_OID, IMA_TARGET_PROPERTIES*) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_GetSessionOidList(IMA_OID, IMA_OID_LIST** list) {
    return give_empty(list);
}
IMA_STATUS IMA_GetSessionProperties(IMA_OID, IMA_SESSION_PROPERTIES*) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_GetConnectionOidList(IMA_OID, IMA_OID_LIST** list) {
    return give_empty(list);
}
IMA_STATUS IMA_GetConnectionProperties(IMA_OID, IMA_CONNECTION_PROPERTIES*) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_RemoveStaticDiscoveryTarget(IMA_OID) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_FreeMemory(void*) {
    return IMA_STATUS_SUCCESS;
}
IMA_STATUS IMA_VMW_GetLhbaOidList(IMA_OID, IMA_OID_LIST** list) {
    return give_empty(list);
}
IMA_STATUS IMA_VMW_GetLhbaProperties(IMA_OID, IMA_VMW_LHBA_PROPERTIES*) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_VMW_GetConnectionStatus(IMA_OID, IMA_VMW_CONNECTION_STATUS*) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_VMW_AddSession(IMA_OID, void*, void*, void*) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_VMW_RemoveSession(IMA_OID) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_VMW_Rediscover(IMA_OID) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_VMW_GetDiscoveryStatus(IMA_OID, std::uint32_t*) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_VMW_GetNicOidList(IMA_OID, IMA_OID_LIST** list) {
    return give_empty(list);
}
IMA_STATUS IMA_VMW_GetStaticDiscoveryTargetOidList(IMA_OID, IMA_OID_LIST** list) {
    return give_empty(list);
}
IMA_STATUS IMA_VMW_GetStaticDiscoveryTargetProperties(IMA_OID, IMA_STATIC_DISCOVERY_TARGET_PROPERTIES*) {
    return IMA_ERROR_NOT_SUPPORTED;
}
IMA_STATUS IMA_VMW_GetInitiatorAuthParms(IMA_OID, IMA_AUTHMETHOD, IMA_INITIATOR_AUTHPARMS*) {
    return IMA_ERROR_NOT_SUPPORTED;
}

}  // extern "C"
