#include "lettered_target.h"

#include <algorithm>

#include "oxd_ima_utility/oid_cache.h"
#include "support/engine.h"
#include "support/site.h"

using namespace testing_support;

namespace {

constexpr std::string_view nics[] = {"10.0.1.1", "10.0.1.2", "10.0.2.1", "10.0.2.2"};

std::uint32_t state_of(char letter) {
    return letter == 'b'                    ? SESSION_STATE_FREE
           : letter == 'x' || letter == 'p' ? SESSION_STATE_XPT_WAIT
           : letter == 'i'                  ? SESSION_STATE_IN_LOGIN
                                            : SESSION_STATE_LOGGED_IN;
}

}  // namespace

LetteredTarget::LetteredTarget(std::string_view letters, const simhost::Fault& fault) : host(make_site()) {
    const bool on_both = letters.find_first_of("34") != letters.npos;
    iqn = add_volume(*host, "vol-0", -1, on_both ? Lines{} : Lines{"vmhba64"});
    std::string nic(nics[0]);
    for (const char letter : letters) {
        if (letter >= '1' && letter <= '4') {
            nic = nics[letter - '1'];
            continue;
        }
        const char* const first = letter == 's' || letter == 'p' ? "10.0.9.1" : "10.0.9.100";
        host->add_session(session_of(iqn, nic, first, "10.0.9.1", state_of(letter)));
    }
    before = host->sessions(iqn);
    lun = read_lun(iqn);
    (void)obtain_oxr_lun_sessions(lun, records);
    refresh_target_oids_table();
    host->write_file("/var/log/ostrel/oxr.log", "");
    host->fail(fault);
}

std::string LetteredTarget::gone() const {
    const auto now = host->sessions(iqn);
    std::string positions;
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (std::none_of(now.begin(), now.end(), [&](const auto& session) { return session.oid == before[i].oid; })) {
            positions += std::to_string(i);
        }
    }
    return positions;
}

std::string LetteredTarget::added() const {
    std::string made;
    for (const auto& session : host->sessions(iqn)) {
        if (before.empty() || session.oid > before.back().oid) {
            const auto* const nic = std::find(std::begin(nics), std::end(nics), session.local_ip);
            made += static_cast<char>('1' + (nic - std::begin(nics)));
        }
    }
    return made;
}
