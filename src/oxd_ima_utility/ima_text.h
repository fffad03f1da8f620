// Helpers for IMA calls: names, addresses and failures as text.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ima/ima.h"

inline constexpr std::uint32_t ISCSI_CMP_EQUAL = 0;
inline constexpr std::uint32_t ISCSI_CMP_DIFFERENT = 0xC0000000;
inline constexpr std::uint32_t ISCSI_CMP_NO_MEMORY = 0x80000002;
inline constexpr std::uint32_t ISCSI_CMP_NOT_CONVERTIBLE = 0x80000004;

// The longest text of an IPv6 address, with its terminator.
inline constexpr std::size_t IP_ADDRESS_TEXT_SIZE = 46;

// Logs one IMA failure at ERROR: the caller's function, line and module, and the status as text.
void do_print_ima_error_msg(IMA_STATUS status, int line, const char* function, const char* module);

// Logs an IMA failure for the calling function and line.
#define OXR_IMA_ERROR(status) do_print_ima_error_msg(status, __LINE__, __func__, OXR_MODULE)

// The address as text, or null if it cannot be converted. Valid until the thread's next call.
const char* getIPAddressStringFromImaIpAddress(const IMA_IP_ADDRESS& address);

// The number of wide characters before the terminator, at most `maximum`.
std::size_t wch_len(const wchar_t* text, std::size_t maximum);

// Converts at most n - 1 characters and terminates. 0, or ISCSI_CMP_NOT_CONVERTIBLE.
std::uint32_t Iscsi_Mbsnrtowcs(wchar_t* destination, const char* text, std::size_t n);

// Compares a wide name of `wide_length` characters with a narrow one, completely and case-sensitively. At most
// `maximum` - 1 narrow characters are used. ISCSI_CMP_*.
std::uint32_t Iscsi_MixedCmp(const wchar_t* wide, const char* narrow, std::size_t wide_length, std::size_t maximum);

// 1 if both 64-bit halves are equal, else 0.
int isEqual(const IMA_OID& a, const IMA_OID& b);

// ISID bytes as text, "00:02:3d:01:00:1f". `text` has room for 18 characters.
void format_isid(char* text, const std::uint8_t (&isid)[6]);
