#include "oxd_ima_utility/ima_text.h"

#include <cstring>
#include <memory>
#include <thread>

#include "support/golden.h"
#include "support/host_test.h"

namespace {

using testing_support::Golden;
using testing_support::HostTest;

TEST_F(HostTest, EachImaStatusHasItsText) {
    // The last four: the platform's text, without an empty line.
    for (const IMA_STATUS status :
         {0x00000001U, 0x00000003U, 0x80000001U, 0x80000002U, 0x80000003U, 0x80000004U, 0x80000005U, 0x80000008U,
          0x80000009U, 0x8000000AU, 0x80000100U, 0x80000101U, 0x80000103U, 0x80000104U, 0x80000105U, 0x8FFFFFFFU,
          0xC0000000U, 0xC0000002U, 0xC0000003U, 0xC0000004U, 0x80000006U, 0xC0000001U, 0xFFFFFFFFU, 2U}) {
        do_print_ima_error_msg(status, 77, "caller", "module");
    }
    EXPECT_TRUE(
        host->log().ends_with(" : At function caller at line number 77 of file module - got IMA Error: No such "
                              "file or directory\n"));
    Golden("oxd_ima_utility", "ima_errors").add_log(*host);
}

// Names on the heap, so that a read beyond them is seen; without a terminator when they fill their field.
TEST_F(HostTest, NamesAreEqualOnlyInFull) {
    const auto compare = [](std::size_t wide_length, const std::string& narrow, std::size_t maximum) {
        const auto wide = std::make_unique<wchar_t[]>(maximum);
        std::fill_n(wide.get(), wide_length, L'n');
        return Iscsi_MixedCmp(wide.get(), narrow.c_str(), wch_len(wide.get(), maximum), maximum);
    };
    EXPECT_EQ(compare(0, "", 256), ISCSI_CMP_EQUAL);
    EXPECT_EQ(compare(299, std::string(299, 'n'), 300), ISCSI_CMP_EQUAL);
    EXPECT_EQ(compare(256, std::string(255, 'n'), 256), ISCSI_CMP_DIFFERENT);
    EXPECT_EQ(compare(224, std::string(256, 'n'), 224), ISCSI_CMP_DIFFERENT);
    EXPECT_EQ(compare(2, "nN", 256), ISCSI_CMP_DIFFERENT);
    EXPECT_EQ(compare(2, "n\xff", 256), ISCSI_CMP_NOT_CONVERTIBLE);
    host->count_allocations(true);
    host->fail(testing_support::failing("new"));
    EXPECT_EQ(Iscsi_MixedCmp(L"name", "name", 4, 300), ISCSI_CMP_NO_MEMORY);
    host->count_allocations(false);
}

TEST(AddressText, FollowsTheFlagAndStaysWithItsThread) {
    IMA_IP_ADDRESS address{1, {10, 0, 255, 1}};
    const char* const mine = getIPAddressStringFromImaIpAddress(address);
    EXPECT_STREQ(mine, "10.0.255.1");
    std::thread([] {
        const IMA_IP_ADDRESS other{0x80000000, {192, 168, 0, 1}};
        EXPECT_STREQ(getIPAddressStringFromImaIpAddress(other), "192.168.0.1");
    }).join();
    EXPECT_STREQ(mine, "10.0.255.1");
    address = {0, {}};
    EXPECT_STREQ(getIPAddressStringFromImaIpAddress(address), "::");
    std::memset(address.ipAddress, 0xab, sizeof address.ipAddress);
    EXPECT_STREQ(getIPAddressStringFromImaIpAddress(address), "abab:abab:abab:abab:abab:abab:abab:abab");
}

TEST(Oid, IsEqualInBothHalves) {
    const IMA_OID oid{1, 2, 3};
    EXPECT_EQ(isEqual(oid, {1, 2, 3}), 1);
    for (const IMA_OID& other : {IMA_OID{0, 2, 3}, IMA_OID{1, 0, 3}, IMA_OID{1, 2, 0}, IMA_OID{1, 2, 3ULL << 32}}) {
        EXPECT_EQ(isEqual(oid, other), 0);
    }
}

}  // namespace
