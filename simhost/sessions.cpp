// Sessions: how they are made, log in and end.
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "simhost/model.h"

namespace simhost {

std::string isid_text(const std::array<std::uint8_t, 6>& isid) {
    return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", isid[0], isid[1], isid[2], isid[3], isid[4],
                       isid[5]);
}

Nic* Host::Impl::least_used_nic(const Port& port) const {
    Nic* best = nullptr;
    std::ptrdiff_t fewest = 0;
    for (const auto& each : port.adapter->nics) {
        if (!each->up) {
            continue;
        }
        const auto used = std::count_if(port.sessions.begin(), port.sessions.end(),
                                        [&](const Session* session) { return session->local_ip == each->ip; });
        if (best == nullptr || used < fewest) {
            best = each.get();
            fewest = used;
        }
    }
    return best;
}

// The data address that a dynamic session is redirected to: of the member array that is up and has the fewest
// sessions of the target, its address with the fewest. Empty when there is none.
std::string Host::Impl::least_used_address(const Target& of) const {
    const auto sessions_at = [&](const auto& wanted) {
        std::ptrdiff_t used = 0;
        for (const auto& port : of.ports) {
            used += std::count_if(port->sessions.begin(), port->sessions.end(), wanted);
        }
        return used;
    };
    Array* best = nullptr;
    std::ptrdiff_t fewest = 0;
    for (Array* each : members(of)) {
        if (!each->up || each->data_ips.empty()) {
            continue;
        }
        const auto used = sessions_at([&](const Session* session) { return session->array == each; });
        if (best == nullptr || used < fewest) {
            best = each;
            fewest = used;
        }
    }
    if (best == nullptr) {
        return {};
    }
    if (best->data_ips.size() == 1) {
        return best->data_ips.front();
    }
    const std::string* address = nullptr;
    for (const std::string& each : best->data_ips) {
        const auto used = sessions_at([&](const Session* session) { return session->current_remote_ip == each; });
        if (address == nullptr || used < fewest) {
            address = &each;
            fewest = used;
        }
    }
    return *address;
}

Array* Host::Impl::array_of(const Group& in, std::string_view ip) const {
    for (const auto& each : in.arrays) {
        if (std::find(each->data_ips.begin(), each->data_ips.end(), ip) != each->data_ips.end()) {
            return each.get();
        }
    }
    return nullptr;
}

// Not yet logging in.
Session& Host::Impl::make_session(Port& port, const std::string& local_ip, bool dynamic, const std::string& remote_ip) {
    auto made = std::make_unique<Session>();
    Session& session = *made;
    session.oid = add_object(IMA_OBJECT_TYPE_SESSION, made.get());
    session.connection_oid = add_object(IMA_OBJECT_TYPE_CONNECTION, made.get());
    const std::uint32_t number = next_isid++;
    session.isid = {0x00,
                    0x02,
                    0x3d,
                    static_cast<std::uint8_t>(number >> 16),
                    static_cast<std::uint8_t>(number >> 8),
                    static_cast<std::uint8_t>(number)};
    session.port = &port;
    session.local_ip = local_ip;
    session.first_remote_ip = session.current_remote_ip = remote_ip;
    session.array = dynamic ? nullptr : array_of(*port.target->group, remote_ip);
    session.made_dynamic = dynamic;
    session.created_at = now();
    const auto taken = [&](int channel) {
        return std::any_of(port.sessions.begin(), port.sessions.end(),
                           [&](const Session* each) { return each->channel == channel; }) ||
               std::any_of(port.dead.begin(), port.dead.end(),
                           [&](const DeadPaths& each) { return each.channel == channel; });
    };
    while (taken(session.channel)) {
        ++session.channel;
    }
    port.sessions.push_back(&session);
    port.adapter->sessions.push_back(&session);
    sessions.emplace(session.oid, std::move(made));
    refresh_port(port);
    return session;
}

// One more session like `model`; null when nothing can answer at the other end.
Session* Host::Impl::make_session_like(const Session& model) {
    Port& port = *model.port;
    if (model.made_dynamic && least_used_address(*port.target).empty()) {
        return nullptr;
    }
    Session& made = make_session(port, model.local_ip, model.made_dynamic, model.first_remote_ip);
    begin_login(made);
    return &made;
}

Session* Host::Impl::make_session_on(Port& port, Nic* nic) {
    if (nic == nullptr) {
        return nullptr;
    }
    if (port.target->group->mode == GroupMode::dynamic_discovery) {
        if (least_used_address(*port.target).empty()) {
            return nullptr;
        }
        make_discovered_entry(port);
        Session& made = make_session(port, nic->ip, true, port.target->group->discovery_ip);
        begin_login(made);
        return &made;
    }
    const StaticEntry* best = nullptr;
    std::ptrdiff_t fewest = 0;
    for (const auto& entry : port.adapter->entries) {
        if (entry->port != &port || entry->discovered || entry->view.by_host_name) {
            continue;
        }
        const Array* at = array_of(*port.target->group, entry->view.portal_ip);
        if (at == nullptr || !at->up) {
            continue;
        }
        const auto used = std::count_if(port.sessions.begin(), port.sessions.end(), [&](const Session* each) {
            return !each->made_dynamic && each->first_remote_ip == entry->view.portal_ip;
        });
        if (best == nullptr || used < fewest) {
            best = entry.get();
            fewest = used;
        }
    }
    if (best == nullptr) {
        return nullptr;
    }
    Session& made = make_session(port, nic->ip, false, best->view.portal_ip);
    begin_login(made);
    return &made;
}

void Host::Impl::set_state(Session& of, std::uint32_t state) {
    if (of.state == state) {
        return;
    }
    Target& to = *of.port->target;
    to.logged_in += (state == LOGGED_IN ? 1 : 0) - (of.state == LOGGED_IN ? 1 : 0);
    of.state = state;
}

void Host::Impl::begin_login(Session& of) {
    emit(Event::Kind::session_added, of.port,
         fmt::format("{} from {} to {}", isid_text(of.isid), of.local_ip, of.first_remote_ip));
    if (login_seconds > 0) {
        Timer timer;
        timer.kind = Timer::Kind::login_half;
        timer.id = of.oid;
        timer.step = of.step;
        schedule(now() + login_seconds / 2, timer);
        timer.kind = Timer::Kind::login;
        schedule(now() + login_seconds, timer);
        return;
    }
    log_in(of, true);
}

// The end of a login: LOGGED_IN, or IN_LOGIN until what hinders it is gone.
void Host::Impl::log_in(Session& of, bool at_once) {
    if (logins_fail || !redirect(of)) {
        of.login_stuck = true;
        set_state(of, IN_LOGIN);
        return;
    }
    of.login_stuck = false;
    of.header_digest = of.data_digest = of.port->adapter->digests;
    set_state(of, LOGGED_IN);
    if (!at_once) {
        emit(Event::Kind::session_state, of.port, isid_text(of.isid) + " LOGGED_IN");
    }
    claim_later(of);
}

void Host::Impl::claim_later(const Session& of) {
    if (options.claim_seconds < 0) {
        return;
    }
    Timer timer;
    timer.kind = Timer::Kind::claim;
    timer.id = of.oid;
    timer.step = of.step;
    schedule(now() + options.claim_seconds, std::move(timer));
}

// On login the group sends a dynamic session on from its discovery address to a data address. False: no array
// is up to take it; for a static session: the array of its portal isn't.
bool Host::Impl::redirect(Session& of) {
    if (!of.made_dynamic) {
        return of.array == nullptr || of.array->up;
    }
    if (of.array != nullptr && of.array->up) {
        return true;
    }
    const std::string address = least_used_address(*of.port->target);
    if (address.empty()) {
        return false;
    }
    of.current_remote_ip = address;
    of.array = array_of(*of.port->target->group, address);
    return true;
}

void Host::Impl::resume_logins() {
    for (auto& [oid, session] : sessions) {
        if (session->login_stuck) {
            log_in(*session, false);
        }
    }
}

void Host::Impl::end_session(Session& of, Event::Kind how, const std::string& why) {
    Port& port = *of.port;
    bury(of);
    set_state(of, FREE);
    erase_item(port.sessions, &of);
    erase_item(port.adapter->sessions, &of);
    objects.erase(of.oid);
    objects.erase(of.connection_oid);
    const std::string text = isid_text(of.isid) + (why.empty() ? "" : ": " + why);
    sessions.erase(of.oid);
    refresh_mode_changed(*port.target);
    refresh_port(port);
    const bool none_left = std::all_of(port.target->ports.begin(), port.target->ports.end(),
                                       [](const auto& each) { return each->sessions.empty(); });
    if (none_left) {
        for (const auto& each : port.target->ports) {
            arm_relogin(*each);
        }
    } else if (how != Event::Kind::session_removed) {
        arm_relogin(port);
    }
    emit(how, &port, text);
}

// A session exactly as described; what is missing is filled in as the host would.
std::uint64_t Host::add_session(const SessionView& view) {
    const Called model(*impl_);
    Target& to = model->target(view.target_iqn);
    Adapter* on = nullptr;
    if (!view.adapter.empty()) {
        on = &model->adapter(view.adapter);
    } else if (!view.local_ip.empty()) {
        model->nic(view.local_ip, &on);
    }
    Port* port = on != nullptr ? model->port_of(to, *on) : to.ports.empty() ? nullptr : to.ports.front().get();
    if (port == nullptr) {
        throw std::invalid_argument("simhost: the adapter doesn't see target " + view.target_iqn);
    }
    for (const std::string* ip : {&view.local_ip, &view.first_remote_ip, &view.current_remote_ip}) {
        if (!ip->empty() && !is_ipv4(*ip)) {
            throw std::invalid_argument("simhost: not an IPv4 address: " + *ip);
        }
    }
    std::string local = view.local_ip;
    if (local.empty()) {
        const Nic* least = model->least_used_nic(*port);
        if (least == nullptr) {
            throw std::invalid_argument("simhost: no NIC is up on adapter " + port->adapter->name);
        }
        local = least->ip;
    }
    std::string first = view.first_remote_ip;
    std::string current = view.current_remote_ip;
    const bool pending = view.state == XPT_WAIT || view.state == IN_LOGIN;
    if (first.empty()) {
        first = view.made_dynamic ? to.group->discovery_ip : current.empty() ? model->least_used_address(to) : current;
    }
    if (current.empty()) {
        current = view.made_dynamic && !pending ? model->least_used_address(to) : first;
    }
    if (first.empty() || current.empty()) {
        throw std::invalid_argument("simhost: no remote address for a session to " + view.target_iqn);
    }
    std::array<std::uint8_t, 6> isid{};
    if (!view.isid.empty()) {
        unsigned byte[6] = {};
        if (view.isid.size() != 17 || std::sscanf(view.isid.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x", &byte[0], &byte[1],
                                                  &byte[2], &byte[3], &byte[4], &byte[5]) != 6) {
            throw std::invalid_argument("simhost: not an ISID: " + view.isid);
        }
        std::copy(std::begin(byte), std::end(byte), isid.begin());
    }
    Session& made = model->make_session(*port, local, view.made_dynamic, first);
    if (!view.isid.empty()) {
        made.isid = isid;
    }
    made.current_remote_ip = current;
    made.array = view.made_dynamic && current == first ? nullptr : model->array_of(*to.group, current);
    made.header_digest = view.header_digest;
    made.data_digest = view.data_digest;
    model->set_state(made, view.state);
    model->emit(Event::Kind::session_added, port, fmt::format("{} from {} to {}", isid_text(made.isid), local, first));
    return made.oid;
}

void Host::connect(const std::string& iqn, int count) {
    const Called model(*impl_);
    Target& to = model->target(iqn);
    const bool dynamic = to.group->mode == GroupMode::dynamic_discovery;
    const auto finish = [&](Session& made) {
        made.login_stuck = false;
        if (!model->redirect(made)) {
            throw std::invalid_argument("simhost: no array is up behind target " + iqn);
        }
        made.header_digest = made.data_digest = made.port->adapter->digests;
        model->set_state(made, LOGGED_IN);
        model->emit(Event::Kind::session_added, made.port, isid_text(made.isid));
        model->claim(made);
    };
    if (!dynamic) {
        for (const auto& port : to.ports) {
            model->make_static_entries(*port);
        }
    }
    if (!dynamic && count == 0) {
        for (const auto& port : to.ports) {
            for (const auto& entry : port->adapter->entries) {
                Nic* by = model->least_used_nic(*port);
                if (entry->port == port.get() && !entry->discovered && by != nullptr && !model->entry_in_use(*entry)) {
                    finish(model->make_session(*port, by->ip, false, entry->view.portal_ip));
                }
            }
        }
        return;
    }
    for (int i = 0; i < count; ++i) {
        // Over the NIC with the fewest sessions of the target, whatever its adapter.
        Port* best = nullptr;
        Nic* by = nullptr;
        std::ptrdiff_t fewest = 0;
        for (const auto& port : to.ports) {
            Nic* least = model->least_used_nic(*port);
            if (least == nullptr) {
                continue;
            }
            const auto used = std::count_if(port->sessions.begin(), port->sessions.end(),
                                            [&](const Session* each) { return each->local_ip == least->ip; });
            if (by == nullptr || used < fewest) {
                best = port.get();
                by = least;
                fewest = used;
            }
        }
        const std::string remote = by == nullptr ? ""
                                   : dynamic     ? to.group->discovery_ip
                                                 : model->least_used_address(to);
        if (remote.empty()) {
            throw std::invalid_argument("simhost: no NIC or array is up for target " + iqn);
        }
        finish(model->make_session(*best, by->ip, dynamic, remote));
    }
}

}  // namespace simhost
