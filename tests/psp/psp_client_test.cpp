#include "OstrelConnections/psp/psp_client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>

#include "OstrelProvider/log_level.h"
#include "common/text.h"
#include "support/golden.h"
#include "support/host_test.h"
#include "support/site.h"

namespace {

using namespace testing_support;

using AllDevices = OstrelPspIoctlGetAllDeviceInfoData;
using AllTargets = OstrelPspIoctlGetAllGroupScopedTargetsData;
using Addresses = OstrelPspIoctlGetTransportAddrsData;

class PspTest : public HostTest {
protected:
    std::unique_ptr<OxrLun[]> luns = std::make_unique<OxrLun[]>(OSTREL_MAX_VOLUMES);
    std::unique_ptr<OstrelPspGroupScopedTarget[]> targets =
        std::make_unique<OstrelPspGroupScopedTarget[]>(OSTREL_MAX_GROUP_SCOPED_TARGETS);
    std::unique_ptr<Addresses> addrs = std::make_unique<Addresses>();
    int count = 0;
    int total = 77;

    PspTest() : HostTest(make_site()) { log_level = 2; }

    // The PSP's reply: an empty record, filled.
    template <typename Record>
    void reply(unsigned long request, std::function<void(Record&)> fill) {
        host->script_psp(request, [fill](void* buffer, int) {
            std::memset(buffer, 0, sizeof(Record));
            fill(*static_cast<Record*>(buffer));
            return 0;
        });
    }
    static int adapters_request(bool rescan, const Lines& adapters) {
        const auto names = names_of(adapters);
        const int number = static_cast<int>(adapters.size());
        return rescan ? rescan_ioctl(names.get(), number)
                      : delete_dead_path_ioctl(names.get(), number, DEAD_PATH_DELAY_SECONDS);
    }
};

TEST_F(PspTest, EveryRequestTellsEachFailureItsOwnWay) {
    const std::pair<int, std::function<int()>> requests[] = {
        {0, [this] { return get_all_device_info_ioctl(luns.get(), count); }},
        {1, [this] { return get_device_info_ioctl(luns[0]); }},
        {3, [this] { return get_all_group_scoped_targets_ioctl(targets.get(), count); }},
        {4, [this] { return get_group_scoped_target_by_iqn(targets[0]); }},
        {5, [this] { return adapters_request(true, {"vmhba64"}); }},
        {6, [this] { return adapters_request(false, {"vmhba64"}); }},
        {7, [this] { return get_transport_addrs_ioctl(*addrs); }},
    };
    Golden golden("psp", "failures");
    for (const auto& [request, call] : requests) {
        const std::string operation = "psp." + std::to_string(request);
        SCOPED_TRACE(operation);
        host->fail(failing_with("psp.open", ENODEV));
        EXPECT_EQ(call(), -1);
        EXPECT_EQ(host->calls(operation), 0U);
        host->fail(failing_with(operation, EIO));
        testing::internal::CaptureStderr();
        EXPECT_EQ(call(), -1);
        golden.heading(operation + ", to the standard error output: " + testing::internal::GetCapturedStderr());
        golden.add_log(*host, "EWI");
        host->script_psp(static_cast<unsigned long>(request), [](void*, int) { return 0; });
        host->count_allocations(true);
        host->fail(failing("new"));
        const int without_memory = call();
        host->count_allocations(false);
        host->clear_faults();
        EXPECT_EQ(host->blocks_held(), 0);
        golden.heading("without memory " + std::to_string(without_memory));
        golden.add_log(*host, "EW");
        for (const int status : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, INT32_MAX}) {
            host->script_psp(static_cast<unsigned long>(request), [=](void*, int) { return status; });
            golden.heading("status " + std::to_string(status) + ": " + std::to_string(call()));
            golden.add_log(*host, "EWI");
        }
    }
    EXPECT_STREQ(ioctl_status_to_string(-1), "ioctl_status_unknown");
}

TEST_F(PspTest, EachAdapterIsAskedAndTheLastFailureIsTold) {
    const std::pair<std::vector<int>, int> cases[] = {
        // answers, negative: errno; the result
        {{}, 0}, {{0, 0, 0, 0}, 0}, {{0, 6, 0}, 6}, {{0, -EIO, 5}, 5}, {{0, 5, -EIO}, -1}, {{-EIO, 0, 0}, -1},
    };
    for (const bool rescan : {true, false}) {
        for (const auto& [answers, result] : cases) {
            Lines adapters = {"vmhba1234567", "v", "", "vmhba64"};
            adapters.resize(answers.size());
            Lines asked;
            const double begin = host->now();
            host->script_psp(rescan ? 5 : 6, [&, &answers = answers](void* buffer, int) {
                asked.emplace_back(static_cast<const char*>(buffer), OSTREL_ADAPTER_NAME_SIZE);
                EXPECT_EQ(host->now() - begin, rescan ? 0 : DEAD_PATH_DELAY_SECONDS);
                return answers[asked.size() - 1];
            });
            EXPECT_EQ(adapters_request(rescan, adapters), rescan || result == 0 ? result : -1);
            for (std::string& name : adapters) {
                name.resize(OSTREL_ADAPTER_NAME_SIZE);  // each fills the field
            }
            EXPECT_EQ(asked, adapters);
        }
    }
    EXPECT_EQ(host->calls("psp.open"), 2 * std::size(cases));
}

TEST_F(PspTest, ListsAreTakenUpToTheirCapacity) {
    Golden golden("psp", "list_lengths");
    for (const std::int32_t number : {0, 1, 32, 33, 256, 257, INT32_MAX, -1, INT32_MIN}) {
        reply<AllDevices>(0, [=](AllDevices& data) {
            data.num_devices = number;
            std::for_each(std::begin(data.devices), std::end(data.devices), [](OxrLun& lun) { lun.isVvolPE = 1; });
        });
        reply<Addresses>(7, [=](Addresses& data) { data.num_devices = number; });
        reply<AllTargets>(3, [=](AllTargets& data) {
            data.num_targets = number;
            std::for_each(std::begin(data.targets), std::end(data.targets), [](auto& target) { target.num_luns = 1; });
        });
        count = 55;
        EXPECT_EQ(populate_Oxr_Luns(luns.get(), count, total), 0 <= number && number <= 256 ? 0 : -1);
        golden.heading(std::to_string(number) + ": " + std::to_string(count) + " devices");
        count = 55;
        EXPECT_EQ(get_transport_addrs_ioctl(*addrs), 0 <= number && number <= 256 ? 0 : -1);
        EXPECT_EQ(get_all_group_scoped_targets_ioctl(targets.get(), count), 0 <= number && number <= 32 ? 0 : -1);
        golden.heading(std::to_string(count) + " targets");
        golden.add_log(*host, "EWI");
    }
}

TEST_F(PspTest, UnsupportedAndImpossibleDevicesAreLeftOut) {
    reply<AllDevices>(0, [](AllDevices& data) {
        for (; data.num_devices < 9; ++data.num_devices) {
            OxrLun& lun = data.devices[data.num_devices];
            oxr::copy_field(lun.device_eui, "eui-" + std::to_string(data.num_devices));
            lun.num_of_mem_array = 1;
            lun.num_total_paths = 10;
        }
        data.devices[1].num_of_mem_array = 0;
        data.devices[2].num_of_mem_array = 0;
        data.devices[2].isVvolPE = -1;
        data.devices[3].num_adapters = 9;
        data.devices[4].num_adapters = -1;
        data.devices[5].num_total_paths = -5;
        data.devices[6].num_adapters = 8;
        std::memset(&data.devices[7].device_eui, 'e', offsetof(OxrLun, num_sessions));  // no terminator anywhere
        data.devices[7].num_adapters = 8;
        data.devices[8].num_total_paths = INT32_MAX;  // beyond any limit, and so is the sum
    });
    EXPECT_EQ(populate_Oxr_Luns(luns.get(), count, total), 0);
    EXPECT_EQ(count, 5);
    EXPECT_EQ(total, INT32_MAX);
    luns[0].device_eui[0] = '\0';  // not in use
    get_host_total_scsiPaths(luns.get(), 2, total);
    EXPECT_EQ(total, 10);
    Golden("psp", "device_list").add_log(*host);
}

TEST_F(PspTest, ModeChangesAreListedByPosition) {
    for (const auto& [mode, changed] : {std::pair(1, 1), {0, 1}, {2, 1}, {1, 0}, {1, 2}, {-1, 1}, {0, -1}}) {
        oxr::copy_field(luns[count].device_eui, "eui-" + std::to_string(count));
        luns[count].group_mode = mode;
        luns[count++].mode_changed = changed;
    }
    mode_change_info changes[OSTREL_MAX_VOLUMES] = {};
    int to_automatic = 0;
    int to_manual = 0;
    get_mode_change_info(luns.get(), changes, count, count, to_automatic, to_manual);
    Golden golden("psp", "mode_changes");
    for (int i = 0; i < count; ++i) {
        golden.heading(std::to_string(changes[i].change) + " at " + std::to_string(changes[i].index));
    }
    get_mode_change_info(luns.get(), changes, count, 0, to_automatic, to_manual);
    EXPECT_EQ(std::tuple(count, to_automatic, to_manual), std::tuple(0, 1, 1));  // never cleared here
    golden.add_log(*host);
}

TEST_F(PspTest, GroupScopedTargetsNeedADeviceAndPossibleCounts) {
    reply<AllTargets>(3, [](AllTargets& data) {
        for (const int num_luns : {1, 0, -7, 1025, 1, 1024, 1}) {
            auto& target = data.targets[data.num_targets];
            oxr::copy_field(target.target_iqn, "iqn-" + std::to_string(data.num_targets++));
            target.num_luns = num_luns;
        }
        data.targets[4].num_adapters = 9;
        data.targets[5].total_active_paths = 12;
        std::memset(data.targets[6].target_iqn, 'i', sizeof data.targets[6].target_iqn);
    });
    EXPECT_EQ(get_all_group_scoped_targets_ioctl(targets.get(), count), 0);
    EXPECT_EQ(count, 3);
    EXPECT_STREQ(targets[1].target_iqn, "iqn-5");
    Golden("psp", "target_list").add_log(*host);
}

TEST_F(PspTest, RecordsWithImpossibleCountsAreRefused) {
    for (const std::int32_t number : {-1, INT32_MIN, 8, 9, 32, 33, 1024, 1025}) {
        SCOPED_TRACE(number);
        reply<OxrLun>(1, [=](OxrLun& lun) { lun.num_adapters = number; });
        EXPECT_EQ(getDeviceInfoByTargetIqn(luns[0], "iqn") == 0, 0 <= number && number <= 8);
        reply<OstrelPspGroupScopedTarget>(4, [=](auto& target) { target.num_adapters = number; });
        EXPECT_EQ(getGroupScopedTargetInfoByIqn(targets[0], "iqn") == 0, 0 <= number && number <= 8);
        reply<Addresses>(7, [=](Addresses& data) {
            data.num_devices = 2;
            oxr::copy_field(data.devices[1].device_eui, "eui-1");
            data.devices[1].num_paths = number;
        });
        EXPECT_EQ(get_transport_addrs_ioctl(*addrs) == 0, 0 <= number && number <= 32);
    }
    EXPECT_EQ(find_transport_addrs(*addrs, "eui-1"), &addrs->devices[1]);
    EXPECT_EQ(find_transport_addrs(*addrs, "eui-"), nullptr);
    EXPECT_EQ(find_transport_addrs(*addrs, "eui-10"), nullptr);
}

TEST_F(PspTest, ASingleRequestIsAllZeroButForTheIqn) {
    const std::string iqn(300, 'i');
    OxrLun lun{};
    OstrelPspGroupScopedTarget target{};
    std::memset(lun.target_iqn, 'i', sizeof lun.target_iqn);
    std::memset(target.target_iqn, 'i', sizeof target.target_iqn);
    std::memset(static_cast<void*>(luns.get()), 0xee, sizeof lun);
    EXPECT_EQ(getDeviceInfoByTargetIqn(luns[0], iqn.c_str()), OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND);
    EXPECT_EQ(std::memcmp(&lun, &luns[0], sizeof lun), 0);
    std::memset(static_cast<void*>(targets.get()), 0xee, sizeof target);
    EXPECT_EQ(getGroupScopedTargetInfoByIqn(targets[0], iqn.c_str()), OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND);
    EXPECT_EQ(std::memcmp(&target, &targets[0], sizeof target), 0);
}

}  // namespace
