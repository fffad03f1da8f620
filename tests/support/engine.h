// What tests of the connection engine share: the PSP's view of a volume, what is asked of the host, and what must hold
// after every call.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "OstrelConnections/inventory/session_inventory.h"
#include "simhost/host.h"
#include "support/faults.h"

namespace testing_support {

using Lines = std::vector<std::string>;

// Nothing is held and no invariant of the host broke.
void expect_nothing_held(const simhost::Host& host);

// The fields of these adapters.
std::unique_ptr<AdapterName[]> names_of(const Lines& adapters);

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

// What the connection manager has done to the host's sessions so far, and asked of its adapters beside: rediscoveries,
// rescans and deletions of dead paths.
std::uint64_t session_changes(const simhost::Host& host);
std::uint64_t adapter_requests(const simhost::Host& host);

// A cycle of the worker on this thread, and the time until the next one.
void run_cycle(simhost::Host& host);

// The messages logged since the last call that begin so (with a level, say), as short_lines() has them. Empties the
// log.
Lines said(simhost::Host& host, std::string_view beginning = {});

// Waits in real time, at most a minute.
bool wait_until(const std::function<bool()>& reached);

// Names of the shared mutexes that some thread holds.
Lines shared_mutexes_held();

// These, and what the host counts as held: "2 IMA lists", "1 descriptors", "1 heap blocks".
Lines what_is_held(const simhost::Host& host);

// Resident memory of this process, in KiB.
long resident_kib();

}  // namespace testing_support
