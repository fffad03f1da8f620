// What happens on a host that runs: to NICs, arrays, groups, sessions and logins.
#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "simhost/model.h"

namespace simhost {

void Host::nic_down(const std::string& ip) {
    const Called model(*impl_);
    Adapter* on = nullptr;
    model->nic(ip, &on).up = false;
    const std::vector<Session*> standing = on->sessions;
    for (Session* each : standing) {
        if (each->local_ip == ip) {
            model->end_session(*each, Event::Kind::session_lost, "NIC " + ip + " is down");
        }
    }
}

void Host::nic_up(const std::string& ip) {
    const Called model(*impl_);
    Nic& card = model->nic(ip);
    if (card.up) {
        return;
    }
    card.up = true;
    Timer timer;
    timer.kind = Timer::Kind::nic_login;
    timer.id = card.oid;
    model->schedule(model->now() + NIC_LOGIN_SECONDS, std::move(timer));
}

void Host::array_down(const std::string& group_name, const std::string& array_name) {
    const Called model(*impl_);
    Array& down = model->array(model->group(group_name), array_name);
    down.up = false;
    std::vector<Session*> standing;
    for (const auto& [oid, each] : model->sessions) {
        if (each->array == &down) {
            standing.push_back(each.get());
        }
    }
    for (Session* each : standing) {
        if (each->made_dynamic) {
            each->array = nullptr;
            if (model->redirect(*each)) {
                model->emit(Event::Kind::session_state, each->port,
                            fmt::format("{} redirected to {}", isid_text(each->isid), each->current_remote_ip));
                continue;
            }
        } else if (each->state != LOGGED_IN) {
            continue;  // still trying
        }
        model->end_session(*each, Event::Kind::session_lost, "array " + array_name + " is down");
    }
}

void Host::array_up(const std::string& group_name, const std::string& array_name) {
    const Called model(*impl_);
    Group& of = model->group(group_name);
    model->array(of, array_name).up = true;
    model->resume_logins();
    for (Target* target : of.targets) {
        for (const auto& port : target->ports) {
            model->arm_relogin(*port);
        }
    }
}

// The new array takes no session by itself; it is a member of every volume from here on.
void Host::add_array(const std::string& group_name, const ArraySpec& spec) {
    const Called model(*impl_);
    Group& of = model->group(group_name);
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
    for (const auto& each : model->devices) {
        if (each->target->group == &of) {
            each->members.push_back(of.arrays.back().get());
        }
    }
}

void Host::switch_mode(const std::string& group, GroupMode mode) {
    const Called model(*impl_);
    Group& of = model->group(group);
    if (mode == GroupMode::dynamic_discovery && of.discovery_ip.empty()) {
        throw std::invalid_argument("simhost: no discovery address in group " + of.name);
    }
    of.mode = mode;
    of.switched_in_pass = true;
    model->emit({Event::Kind::mode_switched,
                 model->now(),
                 {},
                 {},
                 of.name + (mode == GroupMode::static_discovery ? " static" : " dynamic")});
    for (Target* target : of.targets) {
        target->mode_changed = true;
        model->refresh_mode_changed(*target);
        for (const auto& port : target->ports) {
            if (mode == GroupMode::static_discovery) {
                model->make_static_entries(*port);
            }
            model->refresh_port(*port);
            if (port->sessions.empty()) {
                model->arm_relogin(*port);
            }
        }
    }
}

void Host::drop_session(std::uint64_t oid) {
    const Called model(*impl_);
    model->end_session(model->session(oid), Event::Kind::session_lost, "dropped");
}

void Host::drop_sessions(const std::string& iqn, int count) {
    const Called model(*impl_);
    const Target& of = model->target(iqn);
    std::vector<std::uint64_t> oids;
    for (const auto& [oid, session] : model->sessions) {
        if (session->port->target == &of) {
            oids.push_back(oid);
        }
    }
    for (; count > 0 && !oids.empty(); --count, oids.pop_back()) {
        model->end_session(model->session(oids.back()), Event::Kind::session_lost, "dropped");
    }
}

void Host::set_state(std::uint64_t oid, std::uint32_t state) {
    const Called model(*impl_);
    Session& of = model->session(oid);
    ++of.step;  // the course that its login took is over
    of.login_stuck = false;
    if (state == LOGGED_IN) {
        model->redirect(of);
        model->claim_later(of);
    }
    model->set_state(of, state);
    model->emit(Event::Kind::session_state, of.port, fmt::format("{} set to {}", isid_text(of.isid), state));
}

void Host::set_login_seconds(double seconds) {
    const Called model(*impl_);
    model->login_seconds = seconds;
}

void Host::fail_logins(bool failing) {
    const Called model(*impl_);
    model->logins_fail = failing;
    if (!failing) {
        model->resume_logins();
    }
}

void Host::set_digests(const std::string& adapter, bool on) {
    const Called model(*impl_);
    model->adapter(adapter).digests = on;
}

void Host::set_discovery_outcome(const std::string& adapter, std::uint32_t host_status) {
    const Called model(*impl_);
    model->adapter(adapter).discovery_outcome = host_status;
}

}  // namespace simhost
