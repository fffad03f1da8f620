// What every IMA caller uses: names, addresses, failures as text.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ima/ima.h"

inline constexpr std::uint32_t ISCSI_CMP_EQUAL = 0;
inline constexpr std::uint32_t ISCSI_CMP_DIFFERENT = 0xC0000000;
inline constexpr std::uint32_t ISCSI_CMP_NO_MEMORY = 0x80000002;
inline constexpr std::uint32_t ISCSI_CMP_NOT_CONVERTIBLE = 0x80000004;

// An IPv6 address's longest text and its terminator.
inline constexpr std::size_t IP_ADDRESS_TEXT_SIZE = 46;

// Logs one IMA failure at ERROR: the caller's function, line and module, and the status as text.
void do_print_ima_error_msg(IMA_STATUS status, int line, const char* function, const char* module);

// The IMA failure of this very place.
#define OXR_IMA_ERROR(status) do_print_ima_error_msg(status, __LINE__, __func__, OXR_MODULE)

// The address as text, or null when it can't be converted. Lives until the thread's next call.
const char* getIPAddressStringFromImaIpAddress(const IMA_IP_ADDRESS& address);

// Wide characters before the terminator, at most `maximum`.
std::size_t wch_len(const wchar_t* text, std::size_t maximum);

// Converts at most n - 1 characters and terminates. 0, or ISCSI_CMP_NOT_CONVERTIBLE.
std::uint32_t Iscsi_Mbsnrtowcs(wchar_t* destination, const char* text, std::size_t n);

// Compares a wide name of `wide_length` characters with a narrow one, in full and with case. At most
// `maximum` - 1 narrow characters count. ISCSI_CMP_*.
std::uint32_t Iscsi_MixedCmp(const wchar_t* wide, const char* narrow, std::size_t wide_length, std::size_t maximum);

// 1 when both 64-bit halves are equal, else 0.
int isEqual(const IMA_OID& a, const IMA_OID& b);

// ISID bytes as text, "00:02:3d:01:00:1f". `text` has room for 18 characters.
void format_isid(char* text, const std::uint8_t (&isid)[6]);
