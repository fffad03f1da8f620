// The part of the Common Manageability Programming Interface (CMPI) 2.0 of The Open Group that a provider and
// a broker need to meet: types, codes, object and broker tables, provider tables, and the helper functions by
// the standard's names. Natural alignment, C linkage, x86-64 LP64. The sizes and offsets asserted here are the
// binary interface: the broker that loads the library was built elsewhere. Table pointers are to const, as in
// 2.1; the layout is the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

extern "C" {

// --- basic types ------------------------------------------------------------------------------------------

using CMPIBoolean = unsigned char;
using CMPIChar16 = unsigned short;
using CMPIUint8 = unsigned char;
using CMPISint8 = signed char;
using CMPIUint16 = unsigned short;
using CMPISint16 = short;
using CMPIUint32 = unsigned int;
using CMPISint32 = int;
using CMPIUint64 = unsigned long long;
using CMPISint64 = long long;
using CMPIReal32 = float;
using CMPIReal64 = double;
using CMPICount = unsigned int;
using CMPIType = unsigned short;
using CMPIValueState = unsigned short;
using CMPIFlags = unsigned int;
using CMPIMsgFileHandle = void*;
using CMPIGcStat = void;

static_assert(sizeof(CMPIUint16) == 2 && sizeof(CMPIUint32) == 4 && sizeof(CMPIUint64) == 8);
static_assert(sizeof(void*) == 8 && sizeof(CMPIReal32) == 4 && sizeof(CMPIReal64) == 8);

// Passed on to a broker's newCMPIError only; their values are the standard's.
enum CMPIErrorSeverity : unsigned int;
enum CMPIErrorProbableCause : unsigned int;
enum CMPIErrorType : unsigned int;
enum CMPIErrorSrcFormat : unsigned int;

// --- codes ------------------------------------------------------------------------------------------------

enum CMPIrc : unsigned int {
    CMPI_RC_OK = 0,
    CMPI_RC_ERR_FAILED = 1,
    CMPI_RC_ERR_ACCESS_DENIED = 2,
    CMPI_RC_ERR_INVALID_NAMESPACE = 3,
    CMPI_RC_ERR_INVALID_PARAMETER = 4,
    CMPI_RC_ERR_INVALID_CLASS = 5,
    CMPI_RC_ERR_NOT_FOUND = 6,
    CMPI_RC_ERR_NOT_SUPPORTED = 7,
    CMPI_RC_ERR_CLASS_HAS_CHILDREN = 8,
    CMPI_RC_ERR_CLASS_HAS_INSTANCES = 9,
    CMPI_RC_ERR_INVALID_SUPERCLASS = 10,
    CMPI_RC_ERR_ALREADY_EXISTS = 11,
    CMPI_RC_ERR_NO_SUCH_PROPERTY = 12,
    CMPI_RC_ERR_TYPE_MISMATCH = 13,
    CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED = 14,
    CMPI_RC_ERR_INVALID_QUERY = 15,
    CMPI_RC_ERR_METHOD_NOT_AVAILABLE = 16,
    CMPI_RC_ERR_METHOD_NOT_FOUND = 17,
    CMPI_RC_DO_NOT_UNLOAD = 50,  // cleanup only
    CMPI_RC_NEVER_UNLOAD = 51,   // cleanup only
    CMPI_RC_ERR_INVALID_HANDLE = 60,
    CMPI_RC_ERR_INVALID_DATA_TYPE = 61,
    CMPI_RC_ERROR_SYSTEM = 100,
    CMPI_RC_ERROR = 200,
};

inline constexpr CMPIType CMPI_null = 0x0000;
inline constexpr CMPIType CMPI_SIMPLE = 0x0002;
inline constexpr CMPIType CMPI_boolean = 0x0002;
inline constexpr CMPIType CMPI_char16 = 0x0003;
inline constexpr CMPIType CMPI_REAL = 0x0008;
inline constexpr CMPIType CMPI_real32 = 0x0008;
inline constexpr CMPIType CMPI_real64 = 0x000C;
inline constexpr CMPIType CMPI_UINT = 0x0080;
inline constexpr CMPIType CMPI_uint8 = 0x0080;
inline constexpr CMPIType CMPI_uint16 = 0x0090;
inline constexpr CMPIType CMPI_uint32 = 0x00A0;
inline constexpr CMPIType CMPI_uint64 = 0x00B0;
inline constexpr CMPIType CMPI_SINT = 0x00C0;
inline constexpr CMPIType CMPI_sint8 = 0x00C0;
inline constexpr CMPIType CMPI_sint16 = 0x00D0;
inline constexpr CMPIType CMPI_sint32 = 0x00E0;
inline constexpr CMPIType CMPI_sint64 = 0x00F0;
inline constexpr CMPIType CMPI_INTEGER = CMPI_UINT | CMPI_SINT;
inline constexpr CMPIType CMPI_ENC = 0x1000;
inline constexpr CMPIType CMPI_instance = 0x1000;
inline constexpr CMPIType CMPI_ref = 0x1100;
inline constexpr CMPIType CMPI_args = 0x1200;
inline constexpr CMPIType CMPI_class = 0x1300;
inline constexpr CMPIType CMPI_filter = 0x1400;
inline constexpr CMPIType CMPI_enumeration = 0x1500;
inline constexpr CMPIType CMPI_string = 0x1600;
inline constexpr CMPIType CMPI_chars = 0x1700;
inline constexpr CMPIType CMPI_dateTime = 0x1800;
inline constexpr CMPIType CMPI_ptr = 0x1900;
inline constexpr CMPIType CMPI_charsptr = 0x1A00;

// An array's type is its elements' type with this flag; its value is the member `array`.
inline constexpr CMPIType CMPI_ARRAY = 0x2000;
inline constexpr CMPIType CMPI_booleanA = CMPI_ARRAY | CMPI_boolean;
inline constexpr CMPIType CMPI_char16A = CMPI_ARRAY | CMPI_char16;
inline constexpr CMPIType CMPI_real32A = CMPI_ARRAY | CMPI_real32;
inline constexpr CMPIType CMPI_real64A = CMPI_ARRAY | CMPI_real64;
inline constexpr CMPIType CMPI_uint8A = CMPI_ARRAY | CMPI_uint8;
inline constexpr CMPIType CMPI_uint16A = CMPI_ARRAY | CMPI_uint16;
inline constexpr CMPIType CMPI_uint32A = CMPI_ARRAY | CMPI_uint32;
inline constexpr CMPIType CMPI_uint64A = CMPI_ARRAY | CMPI_uint64;
inline constexpr CMPIType CMPI_sint8A = CMPI_ARRAY | CMPI_sint8;
inline constexpr CMPIType CMPI_sint16A = CMPI_ARRAY | CMPI_sint16;
inline constexpr CMPIType CMPI_sint32A = CMPI_ARRAY | CMPI_sint32;
inline constexpr CMPIType CMPI_sint64A = CMPI_ARRAY | CMPI_sint64;
inline constexpr CMPIType CMPI_instanceA = CMPI_ARRAY | CMPI_instance;
inline constexpr CMPIType CMPI_refA = CMPI_ARRAY | CMPI_ref;
inline constexpr CMPIType CMPI_stringA = CMPI_ARRAY | CMPI_string;
inline constexpr CMPIType CMPI_charsA = CMPI_ARRAY | CMPI_chars;
inline constexpr CMPIType CMPI_dateTimeA = CMPI_ARRAY | CMPI_dateTime;
inline constexpr CMPIType CMPI_charsptrA = CMPI_ARRAY | CMPI_charsptr;
static_assert(CMPI_INTEGER == 0x00C0 && CMPI_instanceA == 0x3000 && CMPI_stringA == 0x3600);

// Key synonyms.
inline constexpr CMPIType CMPI_keyInteger = CMPI_sint64;
inline constexpr CMPIType CMPI_keyString = CMPI_string;
inline constexpr CMPIType CMPI_keyBoolean = CMPI_boolean;
inline constexpr CMPIType CMPI_keyRef = CMPI_ref;

// Bits of a value's state. A value is there only when CMPI_nullValue, CMPI_notFound and CMPI_badValue are all
// clear; CMPI_keyValue may stand beside a good value.
inline constexpr CMPIValueState CMPI_goodValue = 0x0000;
inline constexpr CMPIValueState CMPI_nullValue = 0x0100;
inline constexpr CMPIValueState CMPI_keyValue = 0x0200;
inline constexpr CMPIValueState CMPI_notFound = 0x0400;
inline constexpr CMPIValueState CMPI_badValue = 0x8000;

inline constexpr CMPIFlags CMPI_FLAG_LocalOnly = 1;
inline constexpr CMPIFlags CMPI_FLAG_DeepInheritance = 2;
inline constexpr CMPIFlags CMPI_FLAG_IncludeQualifiers = 4;
inline constexpr CMPIFlags CMPI_FLAG_IncludeClassOrigin = 8;

inline constexpr int CMPI_SEV_ERROR = 1;
inline constexpr int CMPI_SEV_INFO = 2;
inline constexpr int CMPI_SEV_WARNING = 3;
inline constexpr int CMPI_DEV_DEBUG = 4;
inline constexpr int CMPI_LEV_INFO = 1;
inline constexpr int CMPI_LEV_WARNING = 2;
inline constexpr int CMPI_LEV_VERBOSE = 3;

// Names of context entries.
inline constexpr char CMPIPrincipal[] = "CMPIPrincipal";
inline constexpr char CMPIInvocationFlags[] = "CMPIInvocationFlags";
inline constexpr char CMPIInitNameSpace[] = "CMPIInitNameSpace";
inline constexpr char CMPIRole[] = "CMPIRole";
inline constexpr char CMPIAcceptLanguage[] = "CMPIAcceptLanguage";
inline constexpr char CMPIContentLanguage[] = "CMPIContentLanguage";

inline constexpr int CMPIVersion100 = 100;
inline constexpr int CMPIVersion200 = 200;

// A capability is there when (brokerCapabilities & mask) == mask.
inline constexpr unsigned int CMPI_MB_BasicRead = 0x00000001;
inline constexpr unsigned int CMPI_MB_BasicWrite = 0x00000003;
inline constexpr unsigned int CMPI_MB_InstanceManipulation = 0x00000007;
inline constexpr unsigned int CMPI_MB_AssociationTraversal = 0x00000009;
inline constexpr unsigned int CMPI_MB_QueryExecution = 0x00000011;
inline constexpr unsigned int CMPI_MB_QueryNormalization = 0x00000031;
inline constexpr unsigned int CMPI_MB_BasicQualifierSupport = 0x00000047;
inline constexpr unsigned int CMPI_MB_Indications = 0x00000081;
inline constexpr unsigned int CMPI_MB_OSEncapsulationSupport = 0x00000100;
inline constexpr unsigned int CMPI_MB_Supports_MemEnhancements = 0x00004000;
inline constexpr unsigned int CMPI_MB_Supports_Extended_Error = 0x00008000;

// --- values -----------------------------------------------------------------------------------------------

struct CMPIBroker;
struct CMPIContext;
struct CMPIResult;
struct CMPIInstance;
struct CMPIObjectPath;
struct CMPIArgs;
struct CMPIString;
struct CMPIArray;
struct CMPIEnumeration;
struct CMPIDateTime;
struct CMPISelectExp;
struct CMPIError;

struct CMPIStatus {
    CMPIrc rc;
    CMPIString* msg;
};
static_assert(sizeof(CMPIStatus) == 16 && offsetof(CMPIStatus, rc) == 0 && offsetof(CMPIStatus, msg) == 8);

struct CMPIValuePtr {
    void* ptr;
    CMPICount length;
};
static_assert(sizeof(CMPIValuePtr) == 16 && offsetof(CMPIValuePtr, length) == 8);

union CMPIValue {
    CMPIUint64 uint64;
    CMPIUint32 uint32;
    CMPIUint16 uint16;
    CMPIUint8 uint8;
    CMPISint64 sint64;
    CMPISint32 sint32;
    CMPISint16 sint16;
    CMPISint8 sint8;
    CMPIReal64 real64;
    CMPIReal32 real32;
    CMPIBoolean boolean;
    CMPIChar16 char16;
    CMPIInstance* inst;
    CMPIObjectPath* ref;
    CMPIArgs* args;
    CMPISelectExp* filter;
    CMPIEnumeration* Enum;
    CMPIArray* array;
    CMPIString* string;
    char* chars;
    CMPIDateTime* dateTime;
    CMPIValuePtr dataPtr;
    CMPISint8 Byte;
    CMPISint16 Short;
    CMPISint32 Int;
    CMPISint64 Long;
    CMPIReal32 Float;
    CMPIReal64 Double;
};
static_assert(sizeof(CMPIValue) == 16 && alignof(CMPIValue) == 8);

struct CMPIData {
    CMPIType type;
    CMPIValueState state;
    CMPIValue value;
};
static_assert(sizeof(CMPIData) == 24 && offsetof(CMPIData, type) == 0 && offsetof(CMPIData, state) == 2 &&
              offsetof(CMPIData, value) == 8);

// Passed and returned by value: the C calling convention holds for trivially copyable types only.
static_assert(std::is_trivially_copyable_v<CMPIStatus> && std::is_trivially_copyable_v<CMPIData>);
static_assert(std::is_standard_layout_v<CMPIStatus> && std::is_standard_layout_v<CMPIData>);

// --- object tables ----------------------------------------------------------------------------------------
// `status` is an out-parameter everywhere and may be null. A table is reached through its object.

#define CMPI_AT(structure, member, offset) static_assert(offsetof(structure, member) == (offset))

struct CMPIContextFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIContext* context);
    CMPIContext* (*clone)(const CMPIContext* context, CMPIStatus* status);
    CMPIData (*getEntry)(const CMPIContext* context, const char* name, CMPIStatus* status);
    CMPIData (*getEntryAt)(const CMPIContext* context, CMPICount index, CMPIString** name, CMPIStatus* status);
    CMPICount (*getEntryCount)(const CMPIContext* context, CMPIStatus* status);
    CMPIStatus (*addEntry)(const CMPIContext* context, const char* name, const CMPIValue* value, CMPIType type);
};
static_assert(sizeof(CMPIContextFT) == 56);
CMPI_AT(CMPIContextFT, release, 8);
CMPI_AT(CMPIContextFT, clone, 16);
CMPI_AT(CMPIContextFT, getEntry, 24);
CMPI_AT(CMPIContextFT, getEntryAt, 32);
CMPI_AT(CMPIContextFT, getEntryCount, 40);
CMPI_AT(CMPIContextFT, addEntry, 48);

struct CMPIResultFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIResult* result);
    CMPIResult* (*clone)(const CMPIResult* result, CMPIStatus* status);
    CMPIStatus (*returnData)(const CMPIResult* result, const CMPIValue* value, CMPIType type);
    CMPIStatus (*returnInstance)(const CMPIResult* result, const CMPIInstance* instance);
    CMPIStatus (*returnObjectPath)(const CMPIResult* result, const CMPIObjectPath* path);
    CMPIStatus (*returnDone)(const CMPIResult* result);
    CMPIStatus (*returnError)(const CMPIResult* result, const CMPIError* error);  // table version 200
};
static_assert(sizeof(CMPIResultFT) == 64);
CMPI_AT(CMPIResultFT, release, 8);
CMPI_AT(CMPIResultFT, clone, 16);
CMPI_AT(CMPIResultFT, returnData, 24);
CMPI_AT(CMPIResultFT, returnInstance, 32);
CMPI_AT(CMPIResultFT, returnObjectPath, 40);
CMPI_AT(CMPIResultFT, returnDone, 48);
CMPI_AT(CMPIResultFT, returnError, 56);

struct CMPIInstanceFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIInstance* instance);
    CMPIInstance* (*clone)(const CMPIInstance* instance, CMPIStatus* status);
    CMPIData (*getProperty)(const CMPIInstance* instance, const char* name, CMPIStatus* status);
    CMPIData (*getPropertyAt)(const CMPIInstance* instance, CMPICount index, CMPIString** name, CMPIStatus* status);
    CMPICount (*getPropertyCount)(const CMPIInstance* instance, CMPIStatus* status);
    CMPIStatus (*setProperty)(const CMPIInstance* instance, const char* name, const CMPIValue* value, CMPIType type);
    CMPIObjectPath* (*getObjectPath)(const CMPIInstance* instance, CMPIStatus* status);
    // Lists of names ended by a null pointer. A null property list: no filter; an empty one: nothing.
    CMPIStatus (*setPropertyFilter)(CMPIInstance* instance, const char** properties, const char** keys);
    CMPIStatus (*setObjectPath)(CMPIInstance* instance, const CMPIObjectPath* path);
    CMPIStatus (*setPropertyWithOrigin)(const CMPIInstance* instance, const char* name, const CMPIValue* value,
                                        CMPIType type, const char* origin);  // table version 200
};
static_assert(sizeof(CMPIInstanceFT) == 88);
CMPI_AT(CMPIInstanceFT, release, 8);
CMPI_AT(CMPIInstanceFT, clone, 16);
CMPI_AT(CMPIInstanceFT, getProperty, 24);
CMPI_AT(CMPIInstanceFT, getPropertyAt, 32);
CMPI_AT(CMPIInstanceFT, getPropertyCount, 40);
CMPI_AT(CMPIInstanceFT, setProperty, 48);
CMPI_AT(CMPIInstanceFT, getObjectPath, 56);
CMPI_AT(CMPIInstanceFT, setPropertyFilter, 64);
CMPI_AT(CMPIInstanceFT, setObjectPath, 72);
CMPI_AT(CMPIInstanceFT, setPropertyWithOrigin, 80);

struct CMPIObjectPathFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIObjectPath* path);
    CMPIObjectPath* (*clone)(const CMPIObjectPath* path, CMPIStatus* status);
    CMPIStatus (*setNameSpace)(CMPIObjectPath* path, const char* name_space);
    CMPIString* (*getNameSpace)(const CMPIObjectPath* path, CMPIStatus* status);
    CMPIStatus (*setHostname)(CMPIObjectPath* path, const char* host);
    CMPIString* (*getHostname)(const CMPIObjectPath* path, CMPIStatus* status);
    CMPIStatus (*setClassName)(CMPIObjectPath* path, const char* class_name);
    CMPIString* (*getClassName)(const CMPIObjectPath* path, CMPIStatus* status);
    CMPIStatus (*addKey)(CMPIObjectPath* path, const char* name, const CMPIValue* value, CMPIType type);
    CMPIData (*getKey)(const CMPIObjectPath* path, const char* name, CMPIStatus* status);
    CMPIData (*getKeyAt)(const CMPIObjectPath* path, CMPICount index, CMPIString** name, CMPIStatus* status);
    CMPICount (*getKeyCount)(const CMPIObjectPath* path, CMPIStatus* status);
    CMPIStatus (*setNameSpaceFromObjectPath)(CMPIObjectPath* path, const CMPIObjectPath* source);
    CMPIStatus (*setHostAndNameSpaceFromObjectPath)(CMPIObjectPath* path, const CMPIObjectPath* source);
    CMPIData (*getClassQualifier)(const CMPIObjectPath* path, const char* qualifier, CMPIStatus* status);
    CMPIData (*getPropertyQualifier)(const CMPIObjectPath* path, const char* property, const char* qualifier,
                                     CMPIStatus* status);
    CMPIData (*getMethodQualifier)(const CMPIObjectPath* path, const char* method, const char* qualifier,
                                   CMPIStatus* status);
    CMPIData (*getParameterQualifier)(const CMPIObjectPath* path, const char* method, const char* parameter,
                                      const char* qualifier, CMPIStatus* status);
    CMPIString* (*toString)(const CMPIObjectPath* path, CMPIStatus* status);
};
static_assert(sizeof(CMPIObjectPathFT) == 160);
CMPI_AT(CMPIObjectPathFT, release, 8);
CMPI_AT(CMPIObjectPathFT, clone, 16);
CMPI_AT(CMPIObjectPathFT, setNameSpace, 24);
CMPI_AT(CMPIObjectPathFT, getNameSpace, 32);
CMPI_AT(CMPIObjectPathFT, setHostname, 40);
CMPI_AT(CMPIObjectPathFT, getHostname, 48);
CMPI_AT(CMPIObjectPathFT, setClassName, 56);
CMPI_AT(CMPIObjectPathFT, getClassName, 64);
CMPI_AT(CMPIObjectPathFT, addKey, 72);
CMPI_AT(CMPIObjectPathFT, getKey, 80);
CMPI_AT(CMPIObjectPathFT, getKeyAt, 88);
CMPI_AT(CMPIObjectPathFT, getKeyCount, 96);
CMPI_AT(CMPIObjectPathFT, setNameSpaceFromObjectPath, 104);
CMPI_AT(CMPIObjectPathFT, setHostAndNameSpaceFromObjectPath, 112);
CMPI_AT(CMPIObjectPathFT, getClassQualifier, 120);
CMPI_AT(CMPIObjectPathFT, getPropertyQualifier, 128);
CMPI_AT(CMPIObjectPathFT, getMethodQualifier, 136);
CMPI_AT(CMPIObjectPathFT, getParameterQualifier, 144);
CMPI_AT(CMPIObjectPathFT, toString, 152);

struct CMPIArgsFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIArgs* args);
    CMPIArgs* (*clone)(const CMPIArgs* args, CMPIStatus* status);
    CMPIStatus (*addArg)(const CMPIArgs* args, const char* name, const CMPIValue* value, CMPIType type);
    CMPIData (*getArg)(const CMPIArgs* args, const char* name, CMPIStatus* status);
    CMPIData (*getArgAt)(const CMPIArgs* args, CMPICount index, CMPIString** name, CMPIStatus* status);
    CMPICount (*getArgCount)(const CMPIArgs* args, CMPIStatus* status);
};
static_assert(sizeof(CMPIArgsFT) == 56);
CMPI_AT(CMPIArgsFT, release, 8);
CMPI_AT(CMPIArgsFT, clone, 16);
CMPI_AT(CMPIArgsFT, addArg, 24);
CMPI_AT(CMPIArgsFT, getArg, 32);
CMPI_AT(CMPIArgsFT, getArgAt, 40);
CMPI_AT(CMPIArgsFT, getArgCount, 48);

struct CMPIStringFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIString* string);
    CMPIString* (*clone)(const CMPIString* string, CMPIStatus* status);
    const char* (*getCharPtr)(const CMPIString* string, CMPIStatus* status);
};
static_assert(sizeof(CMPIStringFT) == 32);
CMPI_AT(CMPIStringFT, release, 8);
CMPI_AT(CMPIStringFT, clone, 16);
CMPI_AT(CMPIStringFT, getCharPtr, 24);

struct CMPIArrayFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIArray* array);
    CMPIArray* (*clone)(const CMPIArray* array, CMPIStatus* status);
    CMPICount (*getSize)(const CMPIArray* array, CMPIStatus* status);
    CMPIType (*getSimpleType)(const CMPIArray* array, CMPIStatus* status);
    CMPIData (*getElementAt)(const CMPIArray* array, CMPICount index, CMPIStatus* status);
    CMPIStatus (*setElementAt)(CMPIArray* array, CMPICount index, const CMPIValue* value, CMPIType type);
};
static_assert(sizeof(CMPIArrayFT) == 56);
CMPI_AT(CMPIArrayFT, release, 8);
CMPI_AT(CMPIArrayFT, clone, 16);
CMPI_AT(CMPIArrayFT, getSize, 24);
CMPI_AT(CMPIArrayFT, getSimpleType, 32);
CMPI_AT(CMPIArrayFT, getElementAt, 40);
CMPI_AT(CMPIArrayFT, setElementAt, 48);

struct CMPIEnumerationFT {
    int ftVersion;
    CMPIStatus (*release)(CMPIEnumeration* enumeration);
    CMPIEnumeration* (*clone)(const CMPIEnumeration* enumeration, CMPIStatus* status);
    CMPIData (*getNext)(const CMPIEnumeration* enumeration, CMPIStatus* status);
    CMPIBoolean (*hasNext)(const CMPIEnumeration* enumeration, CMPIStatus* status);
    CMPIArray* (*toArray)(const CMPIEnumeration* enumeration, CMPIStatus* status);
};
static_assert(sizeof(CMPIEnumerationFT) == 48);
CMPI_AT(CMPIEnumerationFT, release, 8);
CMPI_AT(CMPIEnumerationFT, clone, 16);
CMPI_AT(CMPIEnumerationFT, getNext, 24);
CMPI_AT(CMPIEnumerationFT, hasNext, 32);
CMPI_AT(CMPIEnumerationFT, toArray, 40);

// Tables that nobody here calls.
struct CMPIDateTimeFT;
struct CMPISelectExpFT;
struct CMPIErrorFT;

// --- objects ----------------------------------------------------------------------------------------------
// `hdl` is the broker's own. Code built with the 2.0 form of CMGetCharPtr reads a string's text at its `hdl`.

struct CMPIContext {
    void* hdl;
    const CMPIContextFT* ft;
};
struct CMPIResult {
    void* hdl;
    const CMPIResultFT* ft;
};
struct CMPIInstance {
    void* hdl;
    const CMPIInstanceFT* ft;
};
struct CMPIObjectPath {
    void* hdl;
    const CMPIObjectPathFT* ft;
};
struct CMPIArgs {
    void* hdl;
    const CMPIArgsFT* ft;
};
struct CMPIString {
    void* hdl;
    const CMPIStringFT* ft;
};
struct CMPIArray {
    void* hdl;
    const CMPIArrayFT* ft;
};
struct CMPIEnumeration {
    void* hdl;
    const CMPIEnumerationFT* ft;
};
struct CMPIDateTime {
    void* hdl;
    const CMPIDateTimeFT* ft;
};
struct CMPISelectExp {
    void* hdl;
    const CMPISelectExpFT* ft;
};
struct CMPIError {
    void* hdl;
    const CMPIErrorFT* ft;
};
static_assert(sizeof(CMPIContext) == 16 && offsetof(CMPIContext, ft) == 8);
static_assert(sizeof(CMPIResult) == 16 && offsetof(CMPIResult, ft) == 8);
static_assert(sizeof(CMPIInstance) == 16 && offsetof(CMPIInstance, ft) == 8);
static_assert(sizeof(CMPIObjectPath) == 16 && offsetof(CMPIObjectPath, ft) == 8);
static_assert(sizeof(CMPIArgs) == 16 && offsetof(CMPIArgs, ft) == 8);
static_assert(sizeof(CMPIString) == 16 && offsetof(CMPIString, ft) == 8);
static_assert(sizeof(CMPIArray) == 16 && offsetof(CMPIArray, ft) == 8);
static_assert(sizeof(CMPIEnumeration) == 16 && offsetof(CMPIEnumeration, ft) == 8);
static_assert(sizeof(CMPIDateTime) == 16 && offsetof(CMPIDateTime, ft) == 8);
static_assert(sizeof(CMPISelectExp) == 16 && offsetof(CMPISelectExp, ft) == 8);
static_assert(sizeof(CMPIError) == 16 && offsetof(CMPIError, ft) == 8);

// --- broker tables ----------------------------------------------------------------------------------------
// A broker in use may report version 0 here and 1 in its other tables.

struct CMPIBrokerFT {
    unsigned int brokerCapabilities;
    unsigned int brokerVersion;
    const char* brokerName;
    CMPIContext* (*prepareAttachThread)(const CMPIBroker* broker, const CMPIContext* context);
    CMPIStatus (*attachThread)(const CMPIBroker* broker, const CMPIContext* context);
    CMPIStatus (*detachThread)(const CMPIBroker* broker, const CMPIContext* context);
    CMPIStatus (*deliverIndication)(const CMPIBroker* broker, const CMPIContext* context, const char* name_space,
                                    const CMPIInstance* indication);
    CMPIEnumeration* (*enumerateInstanceNames)(const CMPIBroker* broker, const CMPIContext* context,
                                               const CMPIObjectPath* path, CMPIStatus* status);
    CMPIInstance* (*getInstance)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                                 const char** properties, CMPIStatus* status);
    CMPIObjectPath* (*createInstance)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                                      const CMPIInstance* instance, CMPIStatus* status);
    CMPIStatus (*modifyInstance)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                                 const CMPIInstance* instance, const char** properties);
    CMPIStatus (*deleteInstance)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path);
    CMPIEnumeration* (*execQuery)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                                  const char* query, const char* language, CMPIStatus* status);
    CMPIEnumeration* (*enumerateInstances)(const CMPIBroker* broker, const CMPIContext* context,
                                           const CMPIObjectPath* path, const char** properties, CMPIStatus* status);
    CMPIEnumeration* (*associators)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                                    const char* assoc_class, const char* result_class, const char* role,
                                    const char* result_role, const char** properties, CMPIStatus* status);
    CMPIEnumeration* (*associatorNames)(const CMPIBroker* broker, const CMPIContext* context,
                                        const CMPIObjectPath* path, const char* assoc_class, const char* result_class,
                                        const char* role, const char* result_role, CMPIStatus* status);
    CMPIEnumeration* (*references)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                                   const char* result_class, const char* role, const char** properties,
                                   CMPIStatus* status);
    CMPIEnumeration* (*referenceNames)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                                       const char* result_class, const char* role, CMPIStatus* status);
    CMPIData (*invokeMethod)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                             const char* method, const CMPIArgs* in, CMPIArgs* out, CMPIStatus* status);
    CMPIStatus (*setProperty)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                              const char* name, const CMPIValue* value, CMPIType type);
    CMPIData (*getProperty)(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                            const char* name, CMPIStatus* status);
};
static_assert(sizeof(CMPIBrokerFT) == 160);
CMPI_AT(CMPIBrokerFT, brokerVersion, 4);
CMPI_AT(CMPIBrokerFT, brokerName, 8);
CMPI_AT(CMPIBrokerFT, prepareAttachThread, 16);
CMPI_AT(CMPIBrokerFT, attachThread, 24);
CMPI_AT(CMPIBrokerFT, detachThread, 32);
CMPI_AT(CMPIBrokerFT, deliverIndication, 40);
CMPI_AT(CMPIBrokerFT, enumerateInstanceNames, 48);
CMPI_AT(CMPIBrokerFT, getInstance, 56);
CMPI_AT(CMPIBrokerFT, createInstance, 64);
CMPI_AT(CMPIBrokerFT, modifyInstance, 72);
CMPI_AT(CMPIBrokerFT, deleteInstance, 80);
CMPI_AT(CMPIBrokerFT, execQuery, 88);
CMPI_AT(CMPIBrokerFT, enumerateInstances, 96);
CMPI_AT(CMPIBrokerFT, associators, 104);
CMPI_AT(CMPIBrokerFT, associatorNames, 112);
CMPI_AT(CMPIBrokerFT, references, 120);
CMPI_AT(CMPIBrokerFT, referenceNames, 128);
CMPI_AT(CMPIBrokerFT, invokeMethod, 136);
CMPI_AT(CMPIBrokerFT, setProperty, 144);
CMPI_AT(CMPIBrokerFT, getProperty, 152);

struct CMPIBrokerEncFT {
    int ftVersion;
    CMPIInstance* (*newInstance)(const CMPIBroker* broker, const CMPIObjectPath* path, CMPIStatus* status);
    CMPIObjectPath* (*newObjectPath)(const CMPIBroker* broker, const char* name_space, const char* class_name,
                                     CMPIStatus* status);
    CMPIArgs* (*newArgs)(const CMPIBroker* broker, CMPIStatus* status);
    CMPIString* (*newString)(const CMPIBroker* broker, const char* text, CMPIStatus* status);
    CMPIArray* (*newArray)(const CMPIBroker* broker, CMPICount size, CMPIType type, CMPIStatus* status);
    CMPIDateTime* (*newDateTime)(const CMPIBroker* broker, CMPIStatus* status);
    CMPIDateTime* (*newDateTimeFromBinary)(const CMPIBroker* broker, CMPIUint64 time, CMPIBoolean interval,
                                           CMPIStatus* status);
    CMPIDateTime* (*newDateTimeFromChars)(const CMPIBroker* broker, const char* time, CMPIStatus* status);
    CMPISelectExp* (*newSelectExp)(const CMPIBroker* broker, const char* query, const char* language,
                                   CMPIArray** projection, CMPIStatus* status);
    // True for subclasses; names are compared without regard to case; an unknown class is false with status 0.
    CMPIBoolean (*classPathIsA)(const CMPIBroker* broker, const CMPIObjectPath* path, const char* class_name,
                                CMPIStatus* status);
    CMPIString* (*toString)(const CMPIBroker* broker, const void* object, CMPIStatus* status);
    CMPIBoolean (*isOfType)(const CMPIBroker* broker, const void* object, const char* type, CMPIStatus* status);
    CMPIString* (*getType)(const CMPIBroker* broker, const void* object, CMPIStatus* status);
    CMPIString* (*getMessage)(const CMPIBroker* broker, const char* id, const char* text, CMPIStatus* status,
                              CMPICount count, ...);
    CMPIStatus (*logMessage)(const CMPIBroker* broker, int severity, const char* id, const char* text,
                             const CMPIString* string);
    CMPIStatus (*trace)(const CMPIBroker* broker, int level, const char* component, const char* text,
                        const CMPIString* string);
    // The rest from table version 200 on.
    CMPIError* (*newCMPIError)(const CMPIBroker* broker, const char* owner, const char* id, const char* text,
                               CMPIErrorSeverity severity, CMPIErrorProbableCause cause, CMPIrc code,
                               CMPIStatus* status);
    CMPIStatus (*openMessageFile)(const CMPIBroker* broker, const char* name, CMPIMsgFileHandle* file);
    CMPIStatus (*closeMessageFile)(const CMPIBroker* broker, CMPIMsgFileHandle file);
    CMPIString* (*getMessage2)(const CMPIBroker* broker, const char* id, CMPIMsgFileHandle file, const char* text,
                               CMPIStatus* status, CMPICount count, ...);
};
static_assert(sizeof(CMPIBrokerEncFT) == 168);
CMPI_AT(CMPIBrokerEncFT, newInstance, 8);
CMPI_AT(CMPIBrokerEncFT, newObjectPath, 16);
CMPI_AT(CMPIBrokerEncFT, newArgs, 24);
CMPI_AT(CMPIBrokerEncFT, newString, 32);
CMPI_AT(CMPIBrokerEncFT, newArray, 40);
CMPI_AT(CMPIBrokerEncFT, newDateTime, 48);
CMPI_AT(CMPIBrokerEncFT, newDateTimeFromBinary, 56);
CMPI_AT(CMPIBrokerEncFT, newDateTimeFromChars, 64);
CMPI_AT(CMPIBrokerEncFT, newSelectExp, 72);
CMPI_AT(CMPIBrokerEncFT, classPathIsA, 80);
CMPI_AT(CMPIBrokerEncFT, toString, 88);
CMPI_AT(CMPIBrokerEncFT, isOfType, 96);
CMPI_AT(CMPIBrokerEncFT, getType, 104);
CMPI_AT(CMPIBrokerEncFT, getMessage, 112);
CMPI_AT(CMPIBrokerEncFT, logMessage, 120);
CMPI_AT(CMPIBrokerEncFT, trace, 128);
CMPI_AT(CMPIBrokerEncFT, newCMPIError, 136);
CMPI_AT(CMPIBrokerEncFT, openMessageFile, 144);
CMPI_AT(CMPIBrokerEncFT, closeMessageFile, 152);
CMPI_AT(CMPIBrokerEncFT, getMessage2, 160);

struct CMPIBrokerExtFT;
struct CMPIBrokerMemFT;

struct CMPIBroker {
    void* hdl;
    const CMPIBrokerFT* bft;
    const CMPIBrokerEncFT* eft;
    const CMPIBrokerExtFT* xft;
    const CMPIBrokerMemFT* mft;  // table version 200
};
static_assert(sizeof(CMPIBroker) == 40);
CMPI_AT(CMPIBroker, bft, 8);
CMPI_AT(CMPIBroker, eft, 16);
CMPI_AT(CMPIBroker, xft, 24);
CMPI_AT(CMPIBroker, mft, 32);

// --- provider tables --------------------------------------------------------------------------------------
// Every entry must be there; one that isn't supported answers CMPI_RC_ERR_NOT_SUPPORTED.

struct CMPIInstanceMI;
struct CMPIMethodMI;
struct CMPIAssociationMI;

struct CMPIInstanceMIFT {
    int ftVersion;
    int miVersion;
    const char* miName;
    CMPIStatus (*cleanup)(CMPIInstanceMI* mi, const CMPIContext* context, CMPIBoolean terminating);
    CMPIStatus (*enumerateInstanceNames)(CMPIInstanceMI* mi, const CMPIContext* context, const CMPIResult* result,
                                         const CMPIObjectPath* path);
    CMPIStatus (*enumerateInstances)(CMPIInstanceMI* mi, const CMPIContext* context, const CMPIResult* result,
                                     const CMPIObjectPath* path, const char** properties);
    CMPIStatus (*getInstance)(CMPIInstanceMI* mi, const CMPIContext* context, const CMPIResult* result,
                              const CMPIObjectPath* path, const char** properties);
    CMPIStatus (*createInstance)(CMPIInstanceMI* mi, const CMPIContext* context, const CMPIResult* result,
                                 const CMPIObjectPath* path, const CMPIInstance* instance);
    CMPIStatus (*modifyInstance)(CMPIInstanceMI* mi, const CMPIContext* context, const CMPIResult* result,
                                 const CMPIObjectPath* path, const CMPIInstance* instance, const char** properties);
    CMPIStatus (*deleteInstance)(CMPIInstanceMI* mi, const CMPIContext* context, const CMPIResult* result,
                                 const CMPIObjectPath* path);
    CMPIStatus (*execQuery)(CMPIInstanceMI* mi, const CMPIContext* context, const CMPIResult* result,
                            const CMPIObjectPath* path, const char* query, const char* language);
};
static_assert(sizeof(CMPIInstanceMIFT) == 80);
CMPI_AT(CMPIInstanceMIFT, miVersion, 4);
CMPI_AT(CMPIInstanceMIFT, miName, 8);
CMPI_AT(CMPIInstanceMIFT, cleanup, 16);
CMPI_AT(CMPIInstanceMIFT, enumerateInstanceNames, 24);
CMPI_AT(CMPIInstanceMIFT, enumerateInstances, 32);
CMPI_AT(CMPIInstanceMIFT, getInstance, 40);
CMPI_AT(CMPIInstanceMIFT, createInstance, 48);
CMPI_AT(CMPIInstanceMIFT, modifyInstance, 56);
CMPI_AT(CMPIInstanceMIFT, deleteInstance, 64);
CMPI_AT(CMPIInstanceMIFT, execQuery, 72);

struct CMPIMethodMIFT {
    int ftVersion;
    int miVersion;
    const char* miName;
    CMPIStatus (*cleanup)(CMPIMethodMI* mi, const CMPIContext* context, CMPIBoolean terminating);
    CMPIStatus (*invokeMethod)(CMPIMethodMI* mi, const CMPIContext* context, const CMPIResult* result,
                               const CMPIObjectPath* path, const char* method, const CMPIArgs* in, CMPIArgs* out);
};
static_assert(sizeof(CMPIMethodMIFT) == 32);
CMPI_AT(CMPIMethodMIFT, miVersion, 4);
CMPI_AT(CMPIMethodMIFT, miName, 8);
CMPI_AT(CMPIMethodMIFT, cleanup, 16);
CMPI_AT(CMPIMethodMIFT, invokeMethod, 24);

struct CMPIAssociationMIFT {
    int ftVersion;
    CMPISint32 miVersion;
    const char* miName;
    CMPIStatus (*cleanup)(CMPIAssociationMI* mi, const CMPIContext* context, CMPIBoolean terminating);
    CMPIStatus (*associators)(CMPIAssociationMI* mi, const CMPIContext* context, const CMPIResult* result,
                              const CMPIObjectPath* path, const char* assoc_class, const char* result_class,
                              const char* role, const char* result_role, const char** properties);
    CMPIStatus (*associatorNames)(CMPIAssociationMI* mi, const CMPIContext* context, const CMPIResult* result,
                                  const CMPIObjectPath* path, const char* assoc_class, const char* result_class,
                                  const char* role, const char* result_role);
    CMPIStatus (*references)(CMPIAssociationMI* mi, const CMPIContext* context, const CMPIResult* result,
                             const CMPIObjectPath* path, const char* result_class, const char* role,
                             const char** properties);
    CMPIStatus (*referenceNames)(CMPIAssociationMI* mi, const CMPIContext* context, const CMPIResult* result,
                                 const CMPIObjectPath* path, const char* result_class, const char* role);
};
static_assert(sizeof(CMPIAssociationMIFT) == 56);
CMPI_AT(CMPIAssociationMIFT, miVersion, 4);
CMPI_AT(CMPIAssociationMIFT, miName, 8);
CMPI_AT(CMPIAssociationMIFT, cleanup, 16);
CMPI_AT(CMPIAssociationMIFT, associators, 24);
CMPI_AT(CMPIAssociationMIFT, associatorNames, 32);
CMPI_AT(CMPIAssociationMIFT, references, 40);
CMPI_AT(CMPIAssociationMIFT, referenceNames, 48);

#undef CMPI_AT

// What a factory hands out; lives, like its table, as long as the provider is loaded.
struct CMPIInstanceMI {
    void* hdl;
    const CMPIInstanceMIFT* ft;
};
struct CMPIMethodMI {
    void* hdl;
    const CMPIMethodMIFT* ft;
};
struct CMPIAssociationMI {
    void* hdl;
    const CMPIAssociationMIFT* ft;
};
static_assert(sizeof(CMPIInstanceMI) == 16 && offsetof(CMPIInstanceMI, ft) == 8);
static_assert(sizeof(CMPIMethodMI) == 16 && offsetof(CMPIMethodMI, ft) == 8);
static_assert(sizeof(CMPIAssociationMI) == 16 && offsetof(CMPIAssociationMI, ft) == 8);

}  // extern "C"

// --- helper functions -------------------------------------------------------------------------------------
// Each calls the table entry of its object with its arguments unchanged. Values are passed as the standard
// says: the address of the variable, or for CMPI_chars the text itself.

inline CMPIInstance* CMNewInstance(const CMPIBroker* broker, const CMPIObjectPath* path, CMPIStatus* rc) {
    return broker->eft->newInstance(broker, path, rc);
}
inline CMPIObjectPath* CMNewObjectPath(const CMPIBroker* broker, const char* name_space, const char* class_name,
                                       CMPIStatus* rc) {
    return broker->eft->newObjectPath(broker, name_space, class_name, rc);
}
inline CMPIString* CMNewString(const CMPIBroker* broker, const char* text, CMPIStatus* rc) {
    return broker->eft->newString(broker, text, rc);
}
inline CMPIArray* CMNewArray(const CMPIBroker* broker, CMPICount size, CMPIType type, CMPIStatus* rc) {
    return broker->eft->newArray(broker, size, type, rc);
}
inline CMPIArgs* CMNewArgs(const CMPIBroker* broker, CMPIStatus* rc) {
    return broker->eft->newArgs(broker, rc);
}
inline CMPIBoolean CMClassPathIsA(const CMPIBroker* broker, const CMPIObjectPath* path, const char* class_name,
                                  CMPIStatus* rc) {
    return broker->eft->classPathIsA(broker, path, class_name, rc);
}

inline CMPIEnumeration* CBEnumInstanceNames(const CMPIBroker* broker, const CMPIContext* context,
                                            const CMPIObjectPath* path, CMPIStatus* rc) {
    return broker->bft->enumerateInstanceNames(broker, context, path, rc);
}
inline CMPIEnumeration* CBEnumInstances(const CMPIBroker* broker, const CMPIContext* context,
                                        const CMPIObjectPath* path, const char** properties, CMPIStatus* rc) {
    return broker->bft->enumerateInstances(broker, context, path, properties, rc);
}
inline CMPIInstance* CBGetInstance(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                                   const char** properties, CMPIStatus* rc) {
    return broker->bft->getInstance(broker, context, path, properties, rc);
}
inline CMPIData CBInvokeMethod(const CMPIBroker* broker, const CMPIContext* context, const CMPIObjectPath* path,
                               const char* method, const CMPIArgs* in, CMPIArgs* out, CMPIStatus* rc) {
    return broker->bft->invokeMethod(broker, context, path, method, in, out, rc);
}

inline CMPIStatus CMAddKey(CMPIObjectPath* path, const char* name, const void* value, CMPIType type) {
    return path->ft->addKey(path, name, static_cast<const CMPIValue*>(value), type);
}
inline CMPIData CMGetKey(const CMPIObjectPath* path, const char* name, CMPIStatus* rc) {
    return path->ft->getKey(path, name, rc);
}
inline CMPIString* CMGetNameSpace(const CMPIObjectPath* path, CMPIStatus* rc) {
    return path->ft->getNameSpace(path, rc);
}
inline CMPIString* CMGetClassName(const CMPIObjectPath* path, CMPIStatus* rc) {
    return path->ft->getClassName(path, rc);
}
inline CMPIStatus CMSetNameSpace(CMPIObjectPath* path, const char* name_space) {
    return path->ft->setNameSpace(path, name_space);
}

inline CMPIStatus CMSetPropertyFilter(CMPIInstance* instance, const char** properties, const char** keys) {
    return instance->ft->setPropertyFilter(instance, properties, keys);
}
inline CMPIStatus CMSetProperty(const CMPIInstance* instance, const char* name, const void* value, CMPIType type) {
    return instance->ft->setProperty(instance, name, static_cast<const CMPIValue*>(value), type);
}
inline CMPIData CMGetProperty(const CMPIInstance* instance, const char* name, CMPIStatus* rc) {
    return instance->ft->getProperty(instance, name, rc);
}
inline CMPIObjectPath* CMGetObjectPath(const CMPIInstance* instance, CMPIStatus* rc) {
    return instance->ft->getObjectPath(instance, rc);
}

inline CMPIStatus CMAddArg(const CMPIArgs* args, const char* name, const void* value, CMPIType type) {
    return args->ft->addArg(args, name, static_cast<const CMPIValue*>(value), type);
}
inline CMPIData CMGetArg(const CMPIArgs* args, const char* name, CMPIStatus* rc) {
    return args->ft->getArg(args, name, rc);
}
inline CMPICount CMGetArgCount(const CMPIArgs* args, CMPIStatus* rc) {
    return args->ft->getArgCount(args, rc);
}

inline CMPICount CMGetArrayCount(const CMPIArray* array, CMPIStatus* rc) {
    return array->ft->getSize(array, rc);
}
inline CMPIType CMGetArrayType(const CMPIArray* array, CMPIStatus* rc) {
    return array->ft->getSimpleType(array, rc);
}
inline CMPIData CMGetArrayElementAt(const CMPIArray* array, CMPICount index, CMPIStatus* rc) {
    return array->ft->getElementAt(array, index, rc);
}
inline CMPIStatus CMSetArrayElementAt(CMPIArray* array, CMPICount index, const void* value, CMPIType type) {
    return array->ft->setElementAt(array, index, static_cast<const CMPIValue*>(value), type);
}

inline CMPIBoolean CMHasNext(const CMPIEnumeration* enumeration, CMPIStatus* rc) {
    return enumeration->ft->hasNext(enumeration, rc);
}
inline CMPIData CMGetNext(const CMPIEnumeration* enumeration, CMPIStatus* rc) {
    return enumeration->ft->getNext(enumeration, rc);
}

inline CMPIStatus CMReturnInstance(const CMPIResult* result, const CMPIInstance* instance) {
    return result->ft->returnInstance(result, instance);
}
inline CMPIStatus CMReturnObjectPath(const CMPIResult* result, const CMPIObjectPath* path) {
    return result->ft->returnObjectPath(result, path);
}
inline CMPIStatus CMReturnData(const CMPIResult* result, const void* value, CMPIType type) {
    return result->ft->returnData(result, static_cast<const CMPIValue*>(value), type);
}
inline CMPIStatus CMReturnDone(const CMPIResult* result) {
    return result->ft->returnDone(result);
}

inline CMPIData CMGetContextEntry(const CMPIContext* context, const char* name, CMPIStatus* rc) {
    return context->ft->getEntry(context, name, rc);
}

// Through the table, as in 2.1: right with every broker.
inline const char* CMGetCharPtr(const CMPIString* string) {
    return string->ft->getCharPtr(string, nullptr);
}
inline const char* CMGetCharsPtr(const CMPIString* string, CMPIStatus* rc) {
    return string->ft->getCharPtr(string, rc);
}

// A clone is the caller's and is released by it; everything else is freed by the broker after the call.
template <typename Object>
CMPIStatus CMRelease(Object* object) {
    return object->ft->release(object);
}
template <typename Object>
Object* CMClone(const Object* object, CMPIStatus* rc) {
    return object->ft->clone(object, rc);
}

inline CMPIStatus CMReturn(CMPIrc code) {
    return {code, nullptr};
}
inline CMPIStatus CMReturnWithChars(const CMPIBroker* broker, CMPIrc code, const char* text) {
    return {code, broker->eft->newString(broker, text, nullptr)};
}

inline bool CMIsNullValue(const CMPIData& data) {
    return (data.state & CMPI_nullValue) != 0;
}
template <typename Object>
bool CMIsNullObject(const Object* object) {
    return object == nullptr;
}
