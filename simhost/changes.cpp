// What happens to NICs and arrays while the host runs.
#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "simhost/model.h"

namespace simhost {

void Host::Impl::nic_down(const std::string& ip) {
    Adapter* on = nullptr;
    nic(ip, &on).up = false;
    const std::vector<Session*> standing = on->sessions;
    for (Session* each : standing) {
        if (each->local_ip == ip) {
            end_session(*each, Event::Kind::session_lost, "NIC " + ip + " is down");
        }
    }
}

void Host::Impl::nic_up(const std::string& ip) {
    Nic& card = nic(ip);
    if (card.up) {
        return;
    }
    card.up = true;
    Timer timer;
    timer.kind = Timer::Kind::nic_login;
    timer.id = card.oid;
    schedule(now() + NIC_LOGIN_SECONDS, std::move(timer));
}

void Host::Impl::array_down(const std::string& group_name, const std::string& array_name) {
    Array& down = array(group(group_name), array_name);
    down.up = false;
    std::vector<Session*> standing;
    for (const auto& [oid, each] : sessions) {
        if (each->array == &down) {
            standing.push_back(each.get());
        }
    }
    for (Session* each : standing) {
        if (each->made_dynamic) {
            each->array = nullptr;
            if (redirect(*each)) {
                emit(Event::Kind::session_state, each->port,
                     fmt::format("{} redirected to {}", isid_text(each->isid), each->current_remote_ip));
                continue;
            }
        } else if (each->state != LOGGED_IN) {
            continue;  // still trying
        }
        end_session(*each, Event::Kind::session_lost, "array " + array_name + " is down");
    }
}

void Host::Impl::array_up(const std::string& group_name, const std::string& array_name) {
    Group& of = group(group_name);
    array(of, array_name).up = true;
    resume_logins();
    for (Target* target : of.targets) {
        for (const auto& port : target->ports) {
            arm_relogin(*port);
        }
    }
}

// The new array takes no session by itself; it is a member of every volume from here on.
void Host::Impl::add_array(const std::string& group_name, const ArraySpec& spec) {
    Group& of = group(group_name);
    for (const auto& each : of.arrays) {
        if (spec.name.empty() || each->name == spec.name) {
            throw std::invalid_argument("simhost: array name empty or taken: '" + spec.name + "'");
        }
    }
    for (const std::string& ip : spec.data_ips) {
        if (!is_ipv4(ip)) {
            throw std::invalid_argument("simhost: not an IPv4 address: '" + ip + "'");
        }
    }
    of.arrays.push_back(std::make_unique<Array>(Array{spec.name, spec.data_ips, true}));
    for (const auto& each : devices) {
        if (each->target->group == &of) {
            each->members.push_back(of.arrays.back().get());
        }
    }
}

}  // namespace simhost
