// Answers of the iSCSI Management API: the model's own, changed by the fuzzer's bytes (records, lists, statuses),
// through lookup, inventory, NICs, static targets, discovery, renewal's questions and a whole pass. A session is
// removed only when an inventory of this act told its ISID and the state of its connection, and no static target goes
// of a target without such a session.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <span>

#include "OstrelConnections/inventory/session_inventory.h"
#include "OstrelConnections/mode_change/mode_change.h"
#include "OstrelConnections/polling_pass.h"
#include "OstrelConnections/renewal/renewal.h"
#include "OstrelProvider/log_level.h"
#include "common/text.h"
#include "ima/ima.h"
#include "oxd_ima_utility/discovery.h"
#include "oxd_ima_utility/ima_text.h"
#include "oxd_ima_utility/nics.h"
#include "oxd_ima_utility/oid_lookup.h"
#include "oxd_ima_utility/session_operations.h"
#include "oxd_ima_utility/static_targets.h"
#include "simhost/operations.h"
#include "support/host.h"
#include "support/input.h"
#include "support/site.h"

namespace {

using fuzz::Input;
using fuzz::require;

using simhost::LIST;
using simhost::NOTHING;
using simhost::Operation;

// Those of the IMA come first.
constexpr auto IS_IMA = [](const Operation& each) { return each.name.starts_with("IMA_"); };
constexpr auto NUM_OPERATIONS =
    static_cast<unsigned>(std::count_if(std::begin(simhost::OPERATIONS), std::end(simhost::OPERATIONS), IS_IMA));
constexpr std::span OPERATIONS = std::span(simhost::OPERATIONS).first<NUM_OPERATIONS>();
static_assert(std::all_of(OPERATIONS.begin(), OPERATIONS.end(), IS_IMA));

// One change of an operation's answers.
struct Change {
    enum Kind { bytes, fill, status, shorten, swap, oid, null };
    Kind kind;
    unsigned first_call;  // from this call on
    unsigned num_calls;   // 0: for good
    unsigned place;
    std::uint32_t value;
    std::string text;

    bool hits(unsigned call) const { return call >= first_call && (num_calls == 0 || call < first_call + num_calls); }
};

Change read_change(Input& input) {
    Change change{static_cast<Change::Kind>(input.below(7)), input.below(16), input.below(4), 0, 0, {}};
    change.place = input.number<std::uint16_t>();
    if (change.kind == Change::bytes || change.kind == Change::fill) {
        change.text = input.text(64);
    } else {
        change.value = input.number<std::uint32_t>();
    }
    return change;
}

void change_record(const Change& change, void* record, std::size_t size) {
    const std::size_t at = change.place % size;
    if (change.kind == Change::bytes || change.kind == Change::fill) {
        fuzz::overwrite(static_cast<char*>(record) + at, size - at, change.text, change.kind == Change::fill);
    }
}

void change_list(const Change& change, IMA_OID_LIST*& list) {
    if (list == nullptr) {
        return;
    }
    const std::uint64_t count = list->oidCount;
    if (change.kind == Change::shorten) {
        list->oidCount = change.value % (count + 1);
    } else if (change.kind == Change::null) {
        (void)IMA_FreeMemory(list);
        list = nullptr;
    } else if (count > 0 && change.kind == Change::swap) {
        std::swap(list->oids[change.place % count], list->oids[change.value % count]);
    } else if (count > 0 && change.kind == Change::oid) {
        list->oids[change.place % count].objectSequenceNumber = change.value % 64;
    } else if (count > 0) {
        change_record(change, list->oids, count * sizeof(IMA_OID));
    }
}

// What the answers told: ISIDs, as the host has them, of sessions whose connection's state was told too.
struct Told {
    std::string last;  // session; empty: it can't be read
    std::set<std::string> isids;
};

// The changes of one operation and the calls of it so far.
struct Script {
    const Operation* operation;
    std::vector<Change> changes;
    unsigned calls = 0;
};

std::uint32_t answer(Script& script, Told& told, void* out, std::uint32_t status) {
    const unsigned call = script.calls++;
    const Operation& operation = *script.operation;
    auto* const session = operation.answer == sizeof(IMA_SESSION_PROPERTIES) && status == IMA_STATUS_SUCCESS
                              ? static_cast<IMA_SESSION_PROPERTIES*>(out)
                              : nullptr;
    const IMA_SESSION_PROPERTIES real = session != nullptr ? *session : IMA_SESSION_PROPERTIES{};
    for (const Change& each : script.changes) {
        if (!each.hits(call)) {
            continue;
        }
        if (each.kind == Change::status) {
            status = each.value;
        } else if (operation.answer == LIST) {
            change_list(each, *static_cast<IMA_OID_LIST**>(out));
        } else if (operation.answer != NOTHING && out != nullptr) {
            change_record(each, out, operation.answer);
        }
    }
    if (session != nullptr) {
        // The host never has two sessions of one ISID.
        std::memcpy(session->isid, real.isid, sizeof real.isid);
        char text[24] = "";
        if (status == IMA_STATUS_SUCCESS) {
            format_isid(text, real.isid);
        }
        told.last = text;
    } else if (operation.answer == sizeof(IMA_VMW_CONNECTION_STATUS) && status == IMA_STATUS_SUCCESS &&
               !told.last.empty()) {
        told.isids.insert(told.last);
    }
    return status;
}

void judge(const fuzz::FuzzedSite& site, const Told& told) {
    using Kind = simhost::Event::Kind;
    for (const simhost::Event& each : site.happenings()) {
        if (each.kind == Kind::session_removed) {
            require(told.isids.contains(each.text.substr(0, 17)), "a session was removed that no answer told",
                    each.text);
        } else if (each.kind == Kind::static_target_removed) {
            require(!told.isids.empty(), "a static target was removed without any session told", each.text);
        }
    }
}

// --- acts -------------------------------------------------------------------------------------------------------

constexpr char VOLUME[] = "iqn.2012-07.com.ostrel:dyn-0";

constexpr AdapterName ADAPTERS[] = {"vmhba64", "vmhba65"};

void take_inventory(const std::string& iqn) {
    IscsiProps props{};
    oxr::copy_field(props.target_iqn, iqn.empty() ? VOLUME : std::string_view(iqn));
    std::memcpy(props.vmhba_name_array, ADAPTERS, sizeof ADAPTERS);
    props.num_adapters = 2;
    TargetDtls sessions[MAX_SESSIONS_PER_TARGET] = {};
    int dynamic = 0;
    int total = 0;
    int pending = 0;
    const int result = populate_oxr_sessions(props, sessions, dynamic, total, pending);
    require(result == 0 || result == -1, "inventory result");
    require(
        total >= 0 && total <= MAX_SESSIONS_PER_TARGET && dynamic >= 0 && pending >= 0 && dynamic + pending <= total,
        "session counts");
    for (int s = 0; s < total; ++s) {
        const TargetDtls& session = sessions[s];
        require(strnlen(session.isid, sizeof session.isid) == 17, "a record without its ISID");
        require(strnlen(session.current_remote_ip, 16) >= 7 && strnlen(session.current_remote_ip, 16) < 16 &&
                    strnlen(session.current_local_ip, 16) < 16 && strnlen(session.initial_remote_ip, 16) < 16,
                "an address isn't whole");
        require(session.session_type <= SESSION_LOGIN_PENDING, "a session type");
        if (result == 0 && s == 0) {
            (void)isIscsiDigestEnabled(session);
        }
    }
}

void look_up(const std::string& name) {
    IscsiOidQuery query;
    IMA_OID oid{};
    for (const int bypass : {0, 1, 0}) {
        make_oid_query(query, "vmhba64", name.empty() ? VOLUME : name.c_str(), "00:02:3d:01:00:01");
        (void)iscsi_get_oids(query, oid, bypass);
        make_oid_query(query, "vmhba65", VOLUME, nullptr);
        (void)iscsi_get_oids(query, oid, bypass);
    }
    IMA_OID all[MAX_LOGICAL_ADAPTERS];
    std::uint32_t count = 0;
    (void)iscsi_get_all_hba_oids(all, count);
    require(count <= MAX_LOGICAL_ADAPTERS, "more adapters than there is room for");
    int sessions = 0;
    (void)get_all_system_sessions(sessions, 0);
    require(sessions >= 0, "host session count");
}

void remove_static_targets() {
    const StaticTargetEntry entries[] = {{"iqn.2012-07.com.ostrel:sta-0", "10.9.9.1"},
                                         {"iqn.2012-07.com.ostrel:dyn-0", "10.9.9.100"}};
    const int result = remove_iscsi_static_targets(entries, 2, ISCSI_PORT, ADAPTERS, 2);
    require(result == 0 || result == -1, "static target result");
}

void ask_adapters() {
    const char eui[OSTREL_EUI_SIZE] = "dyn-0";
    require(get_num_nic(eui, ADAPTERS, 2, 0, nullptr) >= -1, "NIC count");
    const int status = get_discover_iscsi_hba_status("vmhba64");
    require(status >= ISCSI_DISCOVERY_DONE && status <= ISCSI_DISCOVERY_NO_STATUS, "discovery outcome");
    (void)do_rediscover_on_adapter("vmhba65");
    (void)isSessionStillPresent("vmhba64", VOLUME, "00:02:3d:01:00:01");
    (void)create_sessions("vmhba64", VOLUME, "00:02:3d:01:00:01");
    (void)create_sessions("vmhba65", VOLUME, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    fuzz::FuzzedSite& site = fuzz::FuzzedSite::of(input.below(fuzz::NUM_SITES));
    const unsigned what = input.below(8);
    log_level = input.below(4) == 1 ? 2 : 0;
    ConfigValues values;
    values.vol_sessions = input.below(9);
    const std::string name = input.text(300).c_str();  // up to a terminator
    std::vector<Script> scripts;
    for (const Operation& each : OPERATIONS) {
        scripts.push_back({&each, {}});
    }
    for (int n = 0; n < 32 && !input.empty(); ++n) {
        Script& script = scripts[input.below(NUM_OPERATIONS)];
        script.changes.push_back(read_change(input));
    }
    Told told;
    for (Script& each : scripts) {
        site.host().script_ima(std::string(each.operation->name),
                               [&](void* out, std::uint32_t status) { return answer(each, told, out, status); });
    }
    if (what < 5) {
        take_inventory(name);
        look_up(name);
        ask_adapters();
        judge(site, told);
        remove_static_targets();  // without looking
    } else {
        (void)handle_ostrel_connections(values);
        judge(site, told);
    }
    site.finish();
    return 0;
}
