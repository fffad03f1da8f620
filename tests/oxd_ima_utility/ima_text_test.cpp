#include "oxd_ima_utility/ima_text.h"

#include <cstring>
#include <memory>
#include <thread>

#include "support/host_test.h"

namespace {

using testing_support::HostTest;
using testing_support::ima_error;
using testing_support::Lines;

TEST_F(HostTest, EachImaStatusHasItsText) {
    const std::pair<IMA_STATUS, const char*> cases[] = {
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
        {0x80000006, "Unknown error -2147483642"},  // the others: the platform's text, without an empty line
        {0xC0000001, "Unknown error -1073741823"},
        {0xFFFFFFFF, "Unknown error -1"},
        {2, "No such file or directory"},
    };
    for (const auto& [status, text] : cases) {
        do_print_ima_error_msg(status, 77, "caller", "oxd_ima_utility");
        EXPECT_EQ(said(), Lines{"ERROR do_print_ima_error_msg: At function caller at line number # of file "
                                "oxd_ima_utility - got IMA Error: " +
                                std::string(text)});
    }
    do_print_ima_error_msg(0x80000008, 77, "caller", "module");
    EXPECT_TRUE(
        host->log().ends_with(" : At function caller at line number 77 of file module - got IMA Error: LUN is "
                              "busy\n\n"));
}

// Wide names stand alone on the heap, without a terminator when they fill their field.
std::unique_ptr<wchar_t[]> field_of(std::string_view text, std::size_t size) {
    auto field = std::make_unique<wchar_t[]>(size);
    for (std::size_t i = 0; i < text.size() && i < size; ++i) {
        field[i] = static_cast<wchar_t>(text[i]);
    }
    return field;
}

TEST(MixedCmp, NamesAreEqualOnlyInFull) {
    const std::string full(256, 'n');
    const struct {
        std::string wide;
        std::string narrow;
        std::size_t maximum;
        std::uint32_t result;
    } cases[] = {
        {"vmhba64", "vmhba64", 256, ISCSI_CMP_EQUAL},
        {"vmhba64", "vmhba6", 256, ISCSI_CMP_DIFFERENT},
        {"vmhba6", "vmhba64", 256, ISCSI_CMP_DIFFERENT},
        {"vmhba64", "VMHBA64", 256, ISCSI_CMP_DIFFERENT},
        {"vmhba64", "", 256, ISCSI_CMP_DIFFERENT},
        {"", "vmhba64", 256, ISCSI_CMP_DIFFERENT},
        {"", "", 256, ISCSI_CMP_EQUAL},
        {"vmhba64", "vmhba\xff", 256, ISCSI_CMP_NOT_CONVERTIBLE},
        {full.substr(0, 223), full.substr(0, 223), 224, ISCSI_CMP_EQUAL},
        {full.substr(0, 222), full.substr(0, 223), 224, ISCSI_CMP_DIFFERENT},
        {full.substr(0, 224), full.substr(0, 223), 224, ISCSI_CMP_DIFFERENT},
        {full.substr(0, 224), full, 224, ISCSI_CMP_DIFFERENT},
        {full.substr(0, 255), full.substr(0, 255), 256, ISCSI_CMP_EQUAL},
        {full, full.substr(0, 255), 256, ISCSI_CMP_DIFFERENT},
        {std::string(299, 'x'), std::string(299, 'x'), 300, ISCSI_CMP_EQUAL},
    };
    for (const auto& each : cases) {
        const auto wide = field_of(each.wide, each.maximum);
        EXPECT_EQ(Iscsi_MixedCmp(wide.get(), each.narrow.c_str(), wch_len(wide.get(), each.maximum), each.maximum),
                  each.result)
            << each.wide << " and " << each.narrow;
    }
}

TEST_F(HostTest, AComparisonWithoutMemorySaysSo) {
    const auto wide = field_of("name", 300);
    host->count_allocations(true);
    host->fail(testing_support::failing("new"));
    EXPECT_EQ(Iscsi_MixedCmp(wide.get(), "name", 4, 300), ISCSI_CMP_NO_MEMORY);
    EXPECT_EQ(Iscsi_MixedCmp(wide.get(), "name", 4, 300), ISCSI_CMP_EQUAL);
    host->count_allocations(false);
    EXPECT_EQ(host->blocks_held(), 0);
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
