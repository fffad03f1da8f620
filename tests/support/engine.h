// What tests of the connection engine share: records as the inventory makes them, the PSP's view of a volume,
// and what must hold after every call.
#pragma once

#include <pthread.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "OstrelConnections/inventory/session_inventory.h"
#include "simhost/host.h"

namespace testing_support {

using Lines = std::vector<std::string>;

// The messages of one operation, in order: "WARN No sessions present for x".
Lines messages(const simhost::Host& host, std::string_view operation);

// No IMA list and no descriptor is held and no invariant of the host broke.
void expect_nothing_held(const simhost::Host& host);

// A record of a target's session. Names: "A" and "B" are good enough for addresses here.
TargetDtls make_record(std::string_view isid, std::string_view local_ip, std::string_view remote_ip,
                       std::uint32_t state = SESSION_STATE_LOGGED_IN, std::uint32_t type = SESSION_DYNAMIC,
                       std::string_view adapter = "vmhba64");

// A query for a target on adapters.
IscsiProps make_props(std::string_view target_iqn, const std::vector<std::string>& adapters);

// The volume's record as the PSP has it at this moment.
OxrLun read_lun(const std::string& target_iqn);

// One session on a NIC; a dynamic one unless the remote addresses are equal.
simhost::SessionView session_of(const std::string& iqn, const std::string& local_ip, const std::string& first_remote_ip,
                                const std::string& current_remote_ip, std::uint32_t state = simhost::LOGGED_IN);

// Each target with its sessions and paths, a line each.
std::string describe(const simhost::Host& host);

// What was asked of the host: "rescan vmhba64", "dead paths vmhba64", "rediscover vmhba64", "add <target>", "remove
// <target>", "remove static target <address>"; empty for any other event.
std::string request_text(const simhost::Event& event);

// Notes these as they come. Lives as long as the host.
void record_requests(simhost::Host& host, Lines& into);

// The n-th call from here on fails: with the operation's usual failure, a status (IMA, PSP) or an errno.
simhost::Fault fault(const std::string& operation, std::uint64_t nth = 1);
simhost::Fault status_fault(const std::string& operation, std::uint32_t status, std::uint64_t nth = 1);
simhost::Fault errno_fault(const std::string& operation, int error, std::uint64_t nth = 1);
simhost::Fault lasting(simhost::Fault made);  // and every later call, too

// Names of the shared mutexes that some thread holds.
Lines shared_mutexes_held();

// Resident memory of this process, in KiB.
long resident_kib();

}  // namespace testing_support
