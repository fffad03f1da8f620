#include "oxd_ima_utility/ima_text.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cwchar>
#include <memory>
#include <new>

#include "OstrelProvider/log.h"
#include "common/text.h"

namespace {

struct ImaMessage {
    IMA_STATUS status;
    const char* text;
};

// Each text ends with a line feed, so an empty line follows its log line.
constexpr ImaMessage ima_messages[] = {
    {0x00000001, "Reboot needed for the changes to take effect\n"},
    {0x00000003, "Reset needed for the changes to take effect\n"},
    {0x80000001, "Unsupported Feature for this Adapter\n"},
    {0x80000002, "Resource allocation failure\n"},
    {0x80000003, "Will remove the last set Discovery Method\n"},
    {0x80000004, "General OS-specific failure\n"},
    {0x80000005, "Timed Out waiting for resource\n"},
    {0x80000008, "LUN is busy\n"},
    {0x80000009, "Command to target timed out\n"},
    {0x8000000A, "Feature not enabled\n"},
    {0x80000100, "SCSI Check condition\n"},
    {0x80000101, "SCSI Busy\n"},
    {0x80000103, "SCSI Task set full\n"},
    {0x80000104, "SCSI ACA Active status\n"},
    {0x80000105, "SCSI Task aborted status\n"},
    {0x8FFFFFFF, "Unknown error\n"},
    {0xC0000000, "Bad Parameter for the API\n"},
    {0xC0000002, "Bad Object for the API\n"},
    {0xC0000003, "No Such Object\n"},
    {0xC0000004, "Name too long\n"},
};

const char* ima_message(IMA_STATUS status) {
    for (const ImaMessage& message : ima_messages) {
        if (message.status == status) {
            return message.text;
        }
    }
    return oxr::error_text(static_cast<int>(status));
}

// Long enough for all names, so nothing is allocated.
constexpr std::size_t usual_maximum = IMA_DEVICE_NAME_CHARACTERS;

std::uint32_t compare_converted(wchar_t* converted, const wchar_t* wide, const char* narrow, std::size_t wide_length,
                                std::size_t maximum) {
    if (Iscsi_Mbsnrtowcs(converted, narrow, maximum) != 0) {
        return ISCSI_CMP_NOT_CONVERTIBLE;
    }
    const std::size_t length = wch_len(converted, maximum);
    // A wide name that fills its field has no terminator, so the lengths are compared instead.
    if (length != wide_length) {
        return ISCSI_CMP_DIFFERENT;
    }
    return std::wmemcmp(converted, wide, length) == 0 ? ISCSI_CMP_EQUAL : ISCSI_CMP_DIFFERENT;
}

}  // namespace

void do_print_ima_error_msg(IMA_STATUS status, int line, const char* function, const char* module) {
    OXR_ERROR("At function %s at line number %d of file %s - got IMA Error: %s", function, line, module,
              ima_message(status));
}

const char* getIPAddressStringFromImaIpAddress(const IMA_IP_ADDRESS& address) {
    thread_local char ipbuf[IP_ADDRESS_TEXT_SIZE];
    const std::uint8_t* const bytes = address.ipAddress;
    if (address.ipv4Address == 0) {
        return inet_ntop(AF_INET6, bytes, ipbuf, sizeof ipbuf);
    }
    if (inet_ntop(AF_INET, bytes, ipbuf, sizeof ipbuf) == nullptr) {
        (void)std::snprintf(ipbuf, sizeof ipbuf, "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
    }
    return ipbuf;
}

std::size_t wch_len(const wchar_t* text, std::size_t maximum) {
    return wcsnlen(text, maximum);
}

std::uint32_t Iscsi_Mbsnrtowcs(wchar_t* destination, const char* text, std::size_t n) {
    std::mbstate_t state{};
    const char* source = text;
    const std::size_t converted = std::mbsrtowcs(destination, &source, n - 1, &state);
    if (converted == static_cast<std::size_t>(-1)) {
        return ISCSI_CMP_NOT_CONVERTIBLE;
    }
    destination[converted] = L'\0';
    return 0;
}

std::uint32_t Iscsi_MixedCmp(const wchar_t* wide, const char* narrow, std::size_t wide_length, std::size_t maximum) {
    if (maximum <= usual_maximum) {
        wchar_t converted[usual_maximum];
        return compare_converted(converted, wide, narrow, wide_length, maximum);
    }
    const std::unique_ptr<wchar_t[]> converted(new (std::nothrow) wchar_t[maximum]);
    if (converted == nullptr) {
        return ISCSI_CMP_NO_MEMORY;
    }
    return compare_converted(converted.get(), wide, narrow, wide_length, maximum);
}

int isEqual(const IMA_OID& a, const IMA_OID& b) {
    return a.objectType == b.objectType && a.ownerId == b.ownerId && a.objectSequenceNumber == b.objectSequenceNumber;
}

void format_isid(char* text, const std::uint8_t (&isid)[6]) {
    (void)std::snprintf(text, 18, "%02x:%02x:%02x:%02x:%02x:%02x", isid[0], isid[1], isid[2], isid[3], isid[4],
                        isid[5]);
}
