#include "OstrelConnections/psp/psp_client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>

#include "OstrelProvider/log.h"
#include "common/text.h"
#include "support/host_test.h"
#include "support/site.h"

namespace {

using testing_support::failing;
using testing_support::failing_with;
using testing_support::HostTest;
using testing_support::Lines;

using AllDevices = OstrelPspIoctlGetAllDeviceInfoData;
using AllTargets = OstrelPspIoctlGetAllGroupScopedTargetsData;
using Addresses = OstrelPspIoctlGetTransportAddrsData;

const std::pair<int, const char*> statuses[] = {
    {1, "OSTREL_PSP_IOCTL_PARTIAL_SUCCESS"},
    {2, "OSTREL_PSP_IOCTL_ERROR_VMK_OUT_OF_MEMORY"},
    {3, "OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND"},
    {4, "OSTREL_PSP_IOCTL_ERROR_INVALID_INPUT"},
    {5, "OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_NOT_FOUND"},
    {6, "OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_BUSY"},
    {7, "OSTREL_PSP_IOCTL_ERROR_RESCAN_MAX_PATHS_CLAIMED"},
    {8, "OSTREL_PSP_IOCTL_ERROR_RESCAN"},
    {9, "OSTREL_PSP_IOCTL_ERROR_DELETE_DEAD_PATHS"},
    {10, "ioctl_status_unknown"},
    {11, "OSTREL_PSP_IOCTL_ERROR_UNKNOWN"},
    {12, "ioctl_status_unknown"},
    {INT32_MAX, "ioctl_status_unknown"},
};

class PspTest : public HostTest {
protected:
    std::unique_ptr<OxrLun[]> luns = std::make_unique<OxrLun[]>(OSTREL_MAX_VOLUMES);
    std::unique_ptr<OstrelPspGroupScopedTarget[]> targets =
        std::make_unique<OstrelPspGroupScopedTarget[]>(OSTREL_MAX_GROUP_SCOPED_TARGETS);
    std::unique_ptr<Addresses> addrs = std::make_unique<Addresses>();
    int count = 0;
    int total = 77;

    PspTest() : HostTest(testing_support::make_site()) { log_level = 2; }

    template <typename Record>
    void reply(unsigned long request, std::function<void(Record&)> fill) {
        host->script_psp(request, [fill](void* buffer, int) {
            std::memset(buffer, 0, sizeof(Record));
            fill(*static_cast<Record*>(buffer));
            return 0;
        });
    }
    // A reply of `number` devices, then changed.
    void reply_devices(
        std::int32_t number, const std::function<void(AllDevices&)>& change = [](AllDevices&) {}) {
        reply<AllDevices>(0, [=](AllDevices& data) {
            data.num_devices = number;
            for (std::int32_t i = 0; i < std::min(number, OSTREL_MAX_VOLUMES); ++i) {
                oxr::copy_field(data.devices[i].device_eui, "eui-" + std::to_string(i));
                data.devices[i].num_of_mem_array = 1;
                data.devices[i].num_total_paths = 10;
            }
            change(data);
        });
    }
    int adapters_request(bool rescan, const std::vector<std::string>& adapters, int delay = 0) {
        const auto names = std::make_unique<AdapterName[]>(adapters.size());
        for (std::size_t i = 0; i < adapters.size(); ++i) {
            oxr::copy_field(names[i], adapters[i]);
        }
        const int number = static_cast<int>(adapters.size());
        return rescan ? rescan_ioctl(names.get(), number) : delete_dead_path_ioctl(names.get(), number, delay);
    }
    // Each wrapper, by name: its request, its texts where they differ, whether it prints to standard error.
    struct Wrapper {
        const char* name;
        std::string request;
        std::function<int()> call;
        const char* system_error;  // printed with errno behind it
        const char* no_memory;     // null: the buffer is the caller's
        bool prints;
        bool gives_status;
    };
    std::vector<Wrapper> wrappers() {
        return {
            {"get_all_device_info_ioctl", "psp.0", [this] { return get_all_device_info_ioctl(luns.get(), count); },
             "ioctl failed with errno=0x5\n", "can not allocate memory for OstrelPspIoctlGetAllDeviceInfoData.", true,
             false},
            {"get_device_info_ioctl", "psp.1", [this] { return get_device_info_ioctl(luns[0]); },
             "ioctl OSTREL_PSP_IOCTL_GET_DEVICE_INFO failed with errno=0x5\n", nullptr, false, true},
            {"get_all_group_scoped_targets_ioctl", "psp.3",
             [this] { return get_all_group_scoped_targets_ioctl(targets.get(), count); },
             "ioctl failed with errno=0x5\n", "ERROR: buffer allocation failed\n", false, false},
            {"get_group_scoped_target_by_iqn", "psp.4", [this] { return get_group_scoped_target_by_iqn(targets[0]); },
             "ioctl failed with errno=0x5\n", nullptr, false, true},
            {"rescan_ioctl", "psp.5", [this] { return adapters_request(true, {"vmhba64"}); },
             "ioctl call - OSTREL_PSP_IOCTL_RESCAN failed. returned errno = 0x5",
             "can not allocate memory for OstrelPspIoctlRescanData.", true, true},
            {"delete_dead_path_ioctl", "psp.6", [this] { return adapters_request(false, {"vmhba64"}); },
             "ioctl failed with errno=0x5\n", "can not allocate memory for OstrelPspIoctlDeleteDeadPathsData.", true,
             false},
            {"get_transport_addrs_ioctl", "psp.7", [this] { return get_transport_addrs_ioctl(*addrs); },
             "ioctl failed with errno=0x5\n", nullptr, true, false},
        };
    }
};

TEST_F(PspTest, EveryWrapperTellsASystemErrorItsOwnWay) {
    for (const Wrapper& each : wrappers()) {
        SCOPED_TRACE(each.name);
        const std::string prefix = std::string("ERROR ") + each.name + ": ";
        host->fail(failing_with("psp.open", ENODEV));
        EXPECT_EQ(each.call(), -1);
        EXPECT_EQ(said(), Lines{prefix + (each.request == "psp.6" ? "open control device failed."
                                                                  : "open control device failed. ErrorNo=0x13")});
        EXPECT_EQ(host->calls(each.request), 0U);
        host->fail(failing_with(each.request, EIO));
        testing::internal::CaptureStderr();
        EXPECT_EQ(each.call(), -1);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), each.prints ? "ioctl: Input/output error\n" : "");
        EXPECT_EQ(said("ERROR"), Lines{prefix + each.system_error});
        EXPECT_EQ(host->descriptors_held(), 0U);
        host->clear_faults();

        if (each.no_memory != nullptr) {
            host->count_allocations(true);
            host->fail(failing("new"));
            const auto calls = host->calls(each.request);
            const int result = each.call();
            host->count_allocations(false);
            EXPECT_EQ(result, -1);
            EXPECT_EQ(said("ERROR"), Lines{prefix + each.no_memory});
            EXPECT_EQ(host->calls(each.request), calls);
            EXPECT_EQ(host->blocks_held(), 0);
            EXPECT_EQ(host->descriptors_held(), 0U);
        }
    }
}

TEST_F(PspTest, EveryWrapperTellsEachStatus) {
    for (const Wrapper& each : wrappers()) {
        for (const auto& [status, text] : statuses) {
            SCOPED_TRACE(each.name + std::to_string(status));
            const int answer = status;
            host->script_psp(std::stoul(each.request.substr(4)), [answer](void*, int) { return answer; });
            std::string message = std::string("ERROR ") + each.name +
                                  ": ioctl command executed successfully , but returned status = " + text;
            int result = each.gives_status ? status : -1;
            if (each.request == "psp.5") {
                message =
                    std::string("ERROR rescan_ioctl: ioctl call - OSTREL_PSP_IOCTL_RESCAN failed. returned status = ") +
                    text + " ";
            } else if (each.request == "psp.7" && status == 1) {
                message =
                    "INFO get_transport_addrs_ioctl: ioctl command executed successfully, but returned status = "
                    "OSTREL_PSP_IOCTL_PARTIAL_SUCCESS. Some devices may not be supporting D6 inquiry.";
                result = 0;
            }
            EXPECT_EQ(each.call(), result);
            EXPECT_EQ(said().back(), message);
        }
    }
    for (const auto& [status, text] : statuses) {
        EXPECT_STREQ(ioctl_status_to_string(status), text);
    }
    EXPECT_STREQ(ioctl_status_to_string(0), "OSTREL_PSP_IOCTL_SUCCESS");
    EXPECT_STREQ(ioctl_status_to_string(-1), "ioctl_status_unknown");
}

TEST_F(PspTest, RescanGoesOnAndTellsTheLastFailure) {
    const struct {
        std::vector<int> answers;  // negative: errno
        int result;
    } cases[] = {
        {{}, 0},        {{0, 0, 0}, 0},     {{0, 6, 0}, 6}, {{0, -EIO, 5}, 5}, {{0, 5, -EIO}, -1},
        {{6, 0, 0}, 6}, {{-EIO, 0, 0}, -1},
    };
    for (const bool rescan : {true, false}) {
        for (const auto& each : cases) {
            std::vector<std::string> asked;
            host->script_psp(rescan ? 5 : 6, [&](void* buffer, int) {
                asked.emplace_back(static_cast<const char*>(buffer), OSTREL_ADAPTER_NAME_SIZE);
                return each.answers[asked.size() - 1];
            });
            const std::vector<std::string> adapters(each.answers.size(), "vmhba64");
            testing::internal::CaptureStderr();
            EXPECT_EQ(adapters_request(rescan, adapters), rescan || each.result == 0 ? each.result : -1);
            (void)testing::internal::GetCapturedStderr();
            EXPECT_EQ(asked, Lines(each.answers.size(), std::string("vmhba64\0\0\0\0\0", 12)));
            EXPECT_EQ(host->descriptors_held(), 0U);
        }
    }
    EXPECT_EQ(host->calls("psp.open"), 2 * std::size(cases));
}

TEST_F(PspTest, AdapterNamesFillTheRequestAndLeaveNothingBehind) {
    std::vector<std::string> asked;
    host->script_psp(5, [&](void* buffer, int) {
        asked.emplace_back(static_cast<const char*>(buffer), OSTREL_ADAPTER_NAME_SIZE);
        return 0;
    });
    EXPECT_EQ(adapters_request(true, {"vmhba1234567", "v", "", "vmhba64"}), 0);
    EXPECT_EQ(asked, (Lines{"vmhba1234567", "v" + std::string(11, '\0'), std::string(12, '\0'),
                            "vmhba64" + std::string(5, '\0')}));
    EXPECT_EQ(said()[0], "DEBUG rescan_ioctl: copied adapter vmhba1234567 to ioctl_data");
}

TEST_F(PspTest, DeadPathDeletionWaitsFirst) {
    for (const int delay : {-1, 0}) {
        EXPECT_EQ(adapters_request(false, {"vmhba64"}, delay), 0);
    }
    EXPECT_EQ(host->sleeps(), 0U);
    double opened = 0;
    host->script_psp(6, [&](void*, int) {
        opened = host->now();
        return 0;
    });
    EXPECT_EQ(adapters_request(false, {"vmhba64"}, DEAD_PATH_DELAY_SECONDS), 0);
    EXPECT_DOUBLE_EQ(opened, 2.0);
}

// --- the device list --------------------------------------------------------------------------------------

TEST_F(PspTest, TheDeviceListIsTakenUpToItsCapacity) {
    const std::string impossible = "ERROR get_all_device_info_ioctl: Impossible number of devices = ";
    const struct {
        std::int32_t number;
        int result;
        std::string message;
    } cases[] = {
        {0, 0, "DEBUG get_all_device_info_ioctl: number of devices = 0"},
        {1, 0, "DEBUG get_all_device_info_ioctl: number of devices = 1"},
        {256, 0, "DEBUG get_all_device_info_ioctl: number of devices = 256"},
        {257, -1, "ERROR get_all_device_info_ioctl: More than max devices returned by psp"},
        {INT32_MAX, -1, "ERROR get_all_device_info_ioctl: More than max devices returned by psp"},
        {-1, -1, impossible + "-1 returned by psp. Not using this list."},
        {INT32_MIN, -1, impossible + "-2147483648 returned by psp. Not using this list."},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.number);
        reply_devices(each.number);
        count = 55;
        EXPECT_EQ(get_all_device_info_ioctl(luns.get(), count), each.result);
        EXPECT_EQ(count, each.result == 0 ? each.number : 55);
        EXPECT_EQ(said(), Lines{each.message});

        count = 55;
        total = 77;
        EXPECT_EQ(populate_Oxr_Luns(luns.get(), count, total), each.result);
        EXPECT_EQ(count, each.result == 0 ? each.number : 55);
        EXPECT_EQ(total, each.result == 0 ? 10 * each.number : 0);
        const Lines lines = said();
        EXPECT_EQ(lines[0], each.message);
        EXPECT_EQ(lines[1], each.result == 0
                                ? "DEBUG get_host_total_scsiPaths: num_vol_nodes = " + std::to_string(each.number)
                                : "ERROR populate_Oxr_Luns: Error getting data from psp via ioctl");
    }
}

TEST_F(PspTest, UnsupportedAndImpossibleDevicesAreLeftOut) {
    reply_devices(9, [](AllDevices& data) {
        data.devices[1].num_of_mem_array = 0;
        data.devices[2].num_of_mem_array = 0;
        data.devices[2].isVvolPE = -1;
        data.devices[3].num_adapters = 9;
        data.devices[4].num_adapters = -1;
        data.devices[5].num_total_paths = -5;
        data.devices[6].num_adapters = 8;
        std::memset(&data.devices[7].device_eui, 'e', offsetof(OxrLun, num_sessions));  // no terminator anywhere
        data.devices[7].num_adapters = 8;
        std::memset(data.devices[8].reserved424, 0xff, sizeof data.devices[8].reserved424);
    });
    EXPECT_EQ(populate_Oxr_Luns(luns.get(), count, total), 0);
    ASSERT_EQ(count, 5);
    EXPECT_EQ(total, 50);
    const char* const kept[] = {"eui-0", "eui-2", "eui-6"};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_STREQ(luns[i].device_eui, kept[i]);
    }
    EXPECT_EQ(oxr::field_view(luns[3].device_eui), std::string(40, 'e'));
    EXPECT_EQ(luns[4].reserved424[7], 0xff);
    const Lines lines = said();
    EXPECT_EQ(lines[0],
              "INFO get_all_device_info_ioctl: device eui-1 belongs to an unsupported array cause "
              "num_of_mem_array = 0. Not being  added to array of OxrLuns ");
    EXPECT_EQ(lines[1],
              "ERROR get_all_device_info_ioctl: Impossible num_adapters = 9 returned by psp for eui-3. Not using "
              "this record.");
    EXPECT_EQ(lines[2],
              "ERROR get_all_device_info_ioctl: Impossible num_adapters = -1 returned by psp for eui-4. Not using "
              "this record.");
    EXPECT_EQ(lines[3],
              "ERROR get_all_device_info_ioctl: Impossible num_total_paths = -5 returned by psp for eui-5. Not "
              "using this record.");
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        "DEBUG get_host_total_scsiPaths: lun->vmhba_name_array[7]= " + std::string(12, 'e')),
              lines.end());
}

TEST_F(PspTest, PathsAreSummedOverRecordsInUse) {
    luns[0].num_total_paths = 1000;  // no device: not in use
    oxr::copy_field(luns[1].device_eui, "eui-1");
    luns[1].num_adapters = 2;
    oxr::copy_field(luns[1].vmhba_name_array[0], "vmhba64");
    oxr::copy_field(luns[1].vmhba_name_array[1], "vmhba65");
    luns[1].num_total_paths = 5;
    luns[1].num_active_paths = 3;
    luns[1].num_dead_paths = 2;
    luns[1].num_of_mem_array = 4;
    luns[1].group_mode = 1;
    luns[1].mode_changed = 2;
    get_host_total_scsiPaths(luns.get(), 2, total);
    EXPECT_EQ(total, 5);
    const std::string prefix = "DEBUG get_host_total_scsiPaths: ";
    EXPECT_EQ(said(),
              (Lines{prefix + "num_vol_nodes = 2",
                     prefix + "lun->device_eui=eui-1, lun->num_adapters=2, lun->num_total_paths=5, "
                              "lun->num_of_mem_array=4, lun->group_mode=1, lun->mode_changed=2, "
                              "lun->num_dead_paths=2, lun->num_active_paths=3, ",
                     prefix + "lun->vmhba_name_array[0]= vmhba64", prefix + "lun->vmhba_name_array[1]= vmhba65"}));
    luns[0] = luns[1];
    luns[0].num_total_paths = INT32_MAX;  // beyond any limit, and so is the sum
    get_host_total_scsiPaths(luns.get(), 2, total);
    EXPECT_EQ(total, INT32_MAX);
    (void)said();
    total = 77;
    get_host_total_scsiPaths(luns.get(), 0, total);
    get_host_total_scsiPaths(luns.get(), -1, total);
    get_host_total_scsiPaths(nullptr, 5, total);
    EXPECT_EQ(total, 77);
    EXPECT_EQ(said(), (Lines{prefix + "num_vol_nodes = 0", prefix + "num_vol_nodes = -1"}));
}

TEST_F(PspTest, ModeChangesAreListedByPosition) {
    const std::pair<std::int32_t, std::int32_t> reported[] = {{1, 1}, {0, 1}, {2, 1}, {1, 0}, {1, 2}, {-1, 1}, {0, -1}};
    for (std::size_t i = 0; i < std::size(reported); ++i) {
        oxr::copy_field(luns[i].device_eui, "eui-" + std::to_string(i));
        luns[i].group_mode = reported[i].first;
        luns[i].mode_changed = reported[i].second;
    }
    mode_change_info changes[OSTREL_MAX_VOLUMES] = {};
    int to_automatic = 0;
    int to_manual = 0;
    get_mode_change_info(luns.get(), changes, count, static_cast<int>(std::size(reported)), to_automatic, to_manual);
    ASSERT_EQ(count, 4);
    const std::pair<std::int32_t, std::int32_t> expected[] = {{-1, 0}, {1, 1}, {1, 2}, {1, 5}};
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(std::pair(changes[i].change, changes[i].index), expected[i]);
    }
    EXPECT_EQ(std::pair(to_automatic, to_manual), std::pair(1, 1));
    EXPECT_EQ(said(), (Lines{"INFO get_mode_change_info: mode change detected for eui-0",
                             "INFO get_mode_change_info: mode change detected for eui-1",
                             "INFO get_mode_change_info: mode change detected for eui-2",
                             "INFO get_mode_change_info: mode change detected for eui-5",
                             "DEBUG get_mode_change_info: Returning from this function. *mode_change_info_cnt = 4"}));
    get_mode_change_info(luns.get(), changes, count, 0, to_automatic, to_manual);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(std::pair(to_automatic, to_manual), std::pair(1, 1));  // never cleared here
}

// --- group-scoped targets and transport addresses -----------------------------------------------------------

TEST_F(PspTest, GroupScopedTargetsNeedADeviceAndPossibleCounts) {
    reply<AllTargets>(3, [](AllTargets& data) {
        data.num_targets = 32;
        for (int i = 0; i < 32; ++i) {
            oxr::copy_field(data.targets[i].target_iqn, "iqn-" + std::to_string(i));
            data.targets[i].num_luns = 1;
        }
        data.targets[1].num_luns = 0;
        data.targets[2].num_luns = -7;
        data.targets[3].num_luns = 1025;
        data.targets[4].num_adapters = 9;
        data.targets[5].num_luns = 1024;
        data.targets[5].total_active_paths = 12;
        std::memset(data.targets[6].target_iqn, 'i', sizeof data.targets[6].target_iqn);
    });
    EXPECT_EQ(get_all_group_scoped_targets_ioctl(targets.get(), count), 0);
    EXPECT_EQ(count, 28);
    EXPECT_STREQ(targets[1].target_iqn, "iqn-5");
    EXPECT_STREQ(targets[27].target_iqn, "iqn-31");
    const std::string name = " get_all_group_scoped_targets_ioctl: ";
    const Lines lines = said();
    EXPECT_EQ(lines[0], "DEBUG" + name + "Group scoped Target 0 : iqn-0 , num_active_paths = 0 \n");
    EXPECT_EQ(lines[1], "ERROR" + name + "target iqn-1 has 0 luns");
    EXPECT_EQ(lines[2], "ERROR" + name + "target iqn-2 has -7 luns");
    EXPECT_EQ(lines[3],
              "ERROR" + name + "Impossible num_luns = 1025 returned by psp for iqn-3. Not using this record.");
    EXPECT_EQ(lines[4],
              "ERROR" + name + "Impossible num_adapters = 9 returned by psp for iqn-4. Not using this record.");
    EXPECT_EQ(lines[5], "DEBUG" + name + "Group scoped Target 5 : iqn-5 , num_active_paths = 12 \n");
    for (const std::int32_t number : {33, -1, INT32_MAX}) {
        reply<AllTargets>(3, [=](AllTargets& data) { data.num_targets = number; });
        EXPECT_EQ(get_all_group_scoped_targets_ioctl(targets.get(), count), -1);
        EXPECT_EQ(said(), Lines{"ERROR" + name + "Impossible number of group scoped targets = " +
                                std::to_string(number) + " returned by psp. Not using this list."});
    }
    reply<AllTargets>(3, [](AllTargets&) {});
    EXPECT_EQ(get_all_group_scoped_targets_ioctl(targets.get(), count), 0);
    EXPECT_EQ(count, 0);
}

TEST_F(PspTest, TransportAddressesWithAnImpossibleCountAreRefused) {
    const auto refused = [this](const std::function<void(Addresses&)>& change) {
        reply<Addresses>(7, [&](Addresses& data) {
            data.num_devices = 2;
            oxr::copy_field(data.devices[1].device_eui, "eui-1");
            data.devices[1].num_paths = 32;
            change(data);
        });
        *addrs = {};
        return get_transport_addrs_ioctl(*addrs) != 0;
    };
    EXPECT_FALSE(refused([](Addresses&) {}));
    EXPECT_EQ(said(), Lines{"INFO get_transport_addrs_ioctl: ioctl command executed successfully, returned status = "
                            "OSTREL_PSP_IOCTL_SUCCESS."});
    EXPECT_EQ(find_transport_addrs(*addrs, "eui-1"), &addrs->devices[1]);
    EXPECT_EQ(find_transport_addrs(*addrs, "eui-"), nullptr);
    EXPECT_EQ(find_transport_addrs(*addrs, "eui-10"), nullptr);
    EXPECT_FALSE(refused([](Addresses& data) { data.num_devices = 256; }));
    for (const std::int32_t number : {257, -1}) {
        EXPECT_TRUE(refused([=](Addresses& data) { data.num_devices = number; }));
        EXPECT_EQ(said("ERROR"), Lines{"ERROR get_transport_addrs_ioctl: Impossible number of devices = " +
                                       std::to_string(number) + " returned by psp. Not using this list."});
    }
    for (const std::int32_t number : {33, -1}) {
        EXPECT_TRUE(refused([=](Addresses& data) { data.devices[1].num_paths = number; }));
        EXPECT_EQ(said("ERROR").size(), 1U);
    }
}

// --- single records -----------------------------------------------------------------------------------------

TEST_F(PspTest, SingleRecordsAreAskedForByTheirIqn) {
    const std::string iqn = testing_support::add_volumes(*host, 1, 4)[0];
    host->add_group_scoped_target({"iqn.gst", "g", {}, {}});
    std::memset(static_cast<void*>(luns.get()), 0xee, sizeof(OxrLun));
    EXPECT_EQ(getDeviceInfoByTargetIqn(luns[0], iqn.c_str()), 0);
    EXPECT_STREQ(luns[0].device_eui, "vol-0");
    EXPECT_EQ(luns[0].num_active_paths, 4);
    std::memset(static_cast<void*>(targets.get()), 0xee, sizeof(OstrelPspGroupScopedTarget));
    EXPECT_EQ(getGroupScopedTargetInfoByIqn(targets[0], "iqn.gst"), 0);
    EXPECT_EQ(targets[0].num_total_array_in_group, 1);
    (void)said();
    EXPECT_EQ(getDeviceInfoByTargetIqn(luns[0], "iqn.none"), OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND);
    EXPECT_EQ(getGroupScopedTargetInfoByIqn(targets[0], iqn.c_str()), OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND);
    const std::string status =
        "ioctl command executed successfully , but returned status = OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND";
    EXPECT_EQ(said(),
              (Lines{"ERROR get_device_info_ioctl: " + status, "ERROR get_group_scoped_target_by_iqn: " + status}));
}

TEST_F(PspTest, ASingleRequestIsAllZeroButForTheIqn) {
    std::string sent;
    host->script_psp(1, [&](void* buffer, int) {
        sent.assign(static_cast<const char*>(buffer), sizeof(OxrLun));
        return 3;
    });
    host->script_psp(4, [&](void* buffer, int) {
        sent.assign(static_cast<const char*>(buffer), sizeof(OstrelPspGroupScopedTarget));
        return 3;
    });
    for (const std::string& iqn : {std::string("iqn.short"), std::string(256, 'i'), std::string(300, 'i')}) {
        std::memset(static_cast<void*>(luns.get()), 0xee, sizeof(OxrLun));
        std::memset(static_cast<void*>(targets.get()), 0xee, sizeof(OstrelPspGroupScopedTarget));
        std::string expected(sizeof(OxrLun), '\0');
        expected.replace(40, std::min<std::size_t>(iqn.size(), 256), iqn.substr(0, 256));
        EXPECT_EQ(getDeviceInfoByTargetIqn(luns[0], iqn.c_str()), 3);
        EXPECT_TRUE(sent == expected);
        expected.assign(sizeof(OstrelPspGroupScopedTarget), '\0');
        expected.replace(0, std::min<std::size_t>(iqn.size(), 256), iqn.substr(0, 256));
        EXPECT_EQ(getGroupScopedTargetInfoByIqn(targets[0], iqn.c_str()), 3);
        EXPECT_TRUE(sent == expected);
    }
}

TEST_F(PspTest, SingleRecordsWithImpossibleCountsAreRefused) {
    for (const std::int32_t number : {9, -1, INT32_MIN}) {
        reply<OxrLun>(1, [=](OxrLun& lun) { lun.num_adapters = number; });
        EXPECT_EQ(getDeviceInfoByTargetIqn(luns[0], "iqn"), -1);
        reply<OstrelPspGroupScopedTarget>(4, [=](auto& target) { target.num_adapters = number; });
        EXPECT_EQ(getGroupScopedTargetInfoByIqn(targets[0], "iqn"), -1);
    }
    reply<OxrLun>(1, [=](OxrLun& lun) { lun.num_active_paths = -1; });
    EXPECT_EQ(getDeviceInfoByTargetIqn(luns[0], "iqn"), -1);
    for (const std::int32_t number : {1025, -1}) {
        reply<OstrelPspGroupScopedTarget>(4, [=](auto& target) { target.num_luns = number; });
        EXPECT_EQ(getGroupScopedTargetInfoByIqn(targets[0], "iqn"), -1);
    }
    EXPECT_EQ(said("ERROR").size(), 9U);
}

}  // namespace
