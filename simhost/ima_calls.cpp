// The IMA operations over the model. Every list handed out is known until IMA_FreeMemory gets it back.
#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "simhost/inside.h"
#include "simhost/model.h"

namespace simhost {

namespace {

using Impl = Host::Impl;

// Counting, faults and scripts around one operation. `out`: the record, or the address of the list pointer.
template <typename Operation>
IMA_STATUS operate(std::string_view name, void* out, Operation&& operation) {
    const Inside inside;
    const auto impl = current_impl();
    if (impl == nullptr) {
        return IMA_ERROR_UNEXPECTED_OS_ERROR;
    }
    const Entered entered(*impl);
    impl->started = true;
    impl->run_due();
    if (const auto fault = impl->hit(name)) {
        return fault->status;
    }
    const IMA_STATUS status = operation(*impl);
    const auto script = impl->ima_scripts.find(name);
    if (script == impl->ima_scripts.end()) {
        return status;
    }
    const auto answering = script->second;  // it may take itself away
    const Callback callback(*impl);
    impl->pass_disturbed = true;
    return answering(out, status);
}

template <typename Item>
IMA_STATUS find(const Impl& impl, const IMA_OID& oid, std::uint32_t type, Item*& item) {
    if (oid.objectType != type) {
        return IMA_ERROR_INCORRECT_OBJECT_TYPE;
    }
    const auto found = impl.objects.find(oid.objectSequenceNumber);
    if (found == impl.objects.end() || found->second.type != type || oid.ownerId != OWNER) {
        return IMA_ERROR_OBJECT_NOT_FOUND;
    }
    item = static_cast<Item*>(found->second.object);
    return IMA_STATUS_SUCCESS;
}

// A getter of a record: finds the object and fills the record from zero.
template <typename Item, typename Record, typename Fill>
IMA_STATUS record(std::string_view name, const IMA_OID& oid, std::uint32_t type, Record* out, Fill&& fill) {
    return operate(name, out, [&](Impl& impl) -> IMA_STATUS {
        if (out == nullptr) {
            return IMA_ERROR_INVALID_PARAMETER;
        }
        Item* item = nullptr;
        const IMA_STATUS status = find(impl, oid, type, item);
        if (status == IMA_STATUS_SUCCESS) {
            std::memset(static_cast<void*>(out), 0, sizeof *out);
            fill(impl, *item);
        }
        return status;
    });
}

class ListMaker {
public:
    void add(std::uint32_t type, std::uint64_t number) { oids_.push_back({type, OWNER, number}); }
    IMA_STATUS hand_out(Impl& impl, IMA_OID_LIST** out) const {
        const std::size_t size =
            offsetof(IMA_OID_LIST, oids) + std::max<std::size_t>(1, oids_.size()) * sizeof(IMA_OID);
        auto* list = static_cast<IMA_OID_LIST*>(std::calloc(1, size));
        if (list == nullptr) {
            return IMA_ERROR_INSUFFICIENT_MEMORY;
        }
        list->oidCount = oids_.size();
        std::copy(oids_.begin(), oids_.end(), list->oids);
        impl.lists.insert(list);
        *out = list;
        return IMA_STATUS_SUCCESS;
    }

private:
    std::vector<IMA_OID> oids_;
};

// A getter of a list: `fill` puts the object identifiers into it. The pointer is null after every failure.
template <typename Fill>
IMA_STATUS list(std::string_view name, IMA_OID_LIST** out, Fill&& fill) {
    if (out != nullptr) {
        *out = nullptr;
    }
    return operate(name, static_cast<void*>(out), [&](Impl& impl) -> IMA_STATUS {
        if (out == nullptr) {
            return IMA_ERROR_INVALID_PARAMETER;
        }
        ListMaker maker;
        const IMA_STATUS status = fill(impl, maker);
        return status == IMA_STATUS_SUCCESS ? maker.hand_out(impl, out) : status;
    });
}

// The same for the parts of one object.
template <typename Item, typename Fill>
IMA_STATUS list_of(std::string_view name, const IMA_OID& oid, std::uint32_t type, IMA_OID_LIST** out, Fill&& fill) {
    return list(name, out, [&](Impl& impl, ListMaker& maker) {
        Item* item = nullptr;
        const IMA_STATUS status = find(impl, oid, type, item);
        if (status == IMA_STATUS_SUCCESS) {
            fill(*item, maker);
        }
        return status;
    });
}

template <std::size_t Size>
void copy_wide(wchar_t (&field)[Size], std::string_view text) {
    for (std::size_t i = 0; i < text.size() && i < Size; ++i) {
        field[i] = static_cast<wchar_t>(static_cast<unsigned char>(text[i]));
    }
}

void copy_address(IMA_IP_ADDRESS& address, const std::string& text) {
    address.ipv4Address = 1;
    inet_pton(AF_INET, text.c_str(), address.ipAddress);
}

void copy_slot(IMA_VMW_ADDRESS_SLOT& slot, const std::string& text) {
    slot.present = 1;
    copy_address(slot.address, text);
}

IMA_STATUS add_to(Impl& impl, const IMA_OID& oid) {
    Session* made = nullptr;
    if (oid.objectType == IMA_OBJECT_TYPE_SESSION) {
        Session* model = nullptr;
        const IMA_STATUS status = find(impl, oid, oid.objectType, model);
        if (status != IMA_STATUS_SUCCESS) {
            return status;
        }
        made = impl.make_session_like(*model);
    } else {
        Port* port = nullptr;
        const IMA_STATUS status = find(impl, oid, IMA_OBJECT_TYPE_TARGET, port);
        if (status != IMA_STATUS_SUCCESS) {
            return status;
        }
        made = impl.make_session_on(*port, impl.least_used_nic(*port));
    }
    if (made == nullptr) {
        return IMA_ERROR_TARGET_TIMEOUT;
    }
    impl.after_addition(*made->port->target);
    return IMA_STATUS_SUCCESS;
}

IMA_STATUS remove_session(Impl& impl, const IMA_OID& oid) {
    Session* session = nullptr;
    const IMA_STATUS status = find(impl, oid, IMA_OBJECT_TYPE_SESSION, session);
    if (status != IMA_STATUS_SUCCESS) {
        return status;
    }
    const Port& port = *session->port;
    const Target& of = *port.target;
    const std::string isid = isid_text(session->isid);
    const std::string local_ip = session->local_ip;
    const bool was_logged_in = of.logged_in > 0;
    const bool is_static = !session->made_dynamic ||
                           (session->state == LOGGED_IN && session->first_remote_ip == session->current_remote_ip);
    if (is_static) {
        impl.removing_static(of, of.mode_changed, isid, false);
    }
    impl.end_session(*session, Event::Kind::session_removed, {});
    if (was_logged_in && of.logged_in == 0) {
        impl.after_removal(of, &port, local_ip, "IMA_VMW_RemoveSession of " + isid);
    }
    return IMA_STATUS_SUCCESS;
}

}  // namespace

}  // namespace simhost

using namespace simhost;

extern "C" {

IMA_STATUS IMA_GetLhbaOidList(IMA_OID_LIST** out) {
    return list(__func__, out, [](Host::Impl& impl, ListMaker& maker) {
        for (const auto& each : impl.adapters) {
            maker.add(IMA_OBJECT_TYPE_LHBA, each->logical_oid);
        }
        return IMA_STATUS_SUCCESS;
    });
}

IMA_STATUS IMA_GetPhbaOidList(IMA_OID_LIST** out) {
    return list(__func__, out, [](Host::Impl& impl, ListMaker& maker) {
        for (const auto& each : impl.adapters) {
            maker.add(IMA_OBJECT_TYPE_PHBA, each->physical_oid);
        }
        return IMA_STATUS_SUCCESS;
    });
}

IMA_STATUS IMA_VMW_GetLhbaOidList(IMA_OID phba, IMA_OID_LIST** out) {
    return list_of<Adapter>(__func__, phba, IMA_OBJECT_TYPE_PHBA, out, [](const Adapter& on, ListMaker& maker) {
        maker.add(IMA_OBJECT_TYPE_LHBA, on.logical_oid);
    });
}

IMA_STATUS IMA_VMW_GetLhbaProperties(IMA_OID lhba, IMA_VMW_LHBA_PROPERTIES* out) {
    return record<Adapter>(__func__, lhba, IMA_OBJECT_TYPE_LHBA, out,
                           [&](Host::Impl&, const Adapter& on) { copy_wide(out->osDeviceName, on.name); });
}

IMA_STATUS IMA_GetTargetOidList(IMA_OID lhba, IMA_OID_LIST** out) {
    return list_of<Adapter>(__func__, lhba, IMA_OBJECT_TYPE_LHBA, out, [](const Adapter& on, ListMaker& maker) {
        for (const Port* each : on.ports) {
            if (each->oid != 0) {
                maker.add(IMA_OBJECT_TYPE_TARGET, each->oid);
            }
        }
    });
}

IMA_STATUS IMA_GetTargetProperties(IMA_OID target, IMA_TARGET_PROPERTIES* out) {
    return record<Port>(__func__, target, IMA_OBJECT_TYPE_TARGET, out, [&](Host::Impl&, const Port& port) {
        out->associatedLhbaOid = {IMA_OBJECT_TYPE_LHBA, OWNER, port.adapter->logical_oid};
        copy_wide(out->name, port.target->iqn);
    });
}

IMA_STATUS IMA_GetSessionOidList(IMA_OID lhbaOrTarget, IMA_OID_LIST** out) {
    const auto add = [](const std::vector<Session*>& sessions, ListMaker& maker) {
        for (const Session* each : sessions) {
            maker.add(IMA_OBJECT_TYPE_SESSION, each->oid);
        }
    };
    if (lhbaOrTarget.objectType == IMA_OBJECT_TYPE_LHBA) {
        return list_of<Adapter>(__func__, lhbaOrTarget, IMA_OBJECT_TYPE_LHBA, out,
                                [&](const Adapter& on, ListMaker& maker) { add(on.sessions, maker); });
    }
    return list_of<Port>(__func__, lhbaOrTarget, IMA_OBJECT_TYPE_TARGET, out,
                         [&](const Port& port, ListMaker& maker) { add(port.sessions, maker); });
}

IMA_STATUS IMA_GetSessionProperties(IMA_OID session, IMA_SESSION_PROPERTIES* out) {
    return record<Session>(__func__, session, IMA_OBJECT_TYPE_SESSION, out, [&](Host::Impl&, const Session& of) {
        std::copy(of.isid.begin(), of.isid.end(), out->isid);
    });
}

IMA_STATUS IMA_GetConnectionOidList(IMA_OID session, IMA_OID_LIST** out) {
    return list_of<Session>(__func__, session, IMA_OBJECT_TYPE_SESSION, out, [](const Session& of, ListMaker& maker) {
        maker.add(IMA_OBJECT_TYPE_CONNECTION, of.connection_oid);
    });
}

IMA_STATUS IMA_GetConnectionProperties(IMA_OID connection, IMA_CONNECTION_PROPERTIES* out) {
    return record<Session>(__func__, connection, IMA_OBJECT_TYPE_CONNECTION, out, [&](Host::Impl&, const Session& of) {
        out->associatedSessionOid = {IMA_OBJECT_TYPE_SESSION, OWNER, of.oid};
        out->headerDigest = of.header_digest ? IMA_DIGEST_CRC32C : IMA_DIGEST_NONE;
        out->dataDigest = of.data_digest ? IMA_DIGEST_CRC32C : IMA_DIGEST_NONE;
    });
}

IMA_STATUS IMA_VMW_GetConnectionStatus(IMA_OID connection, IMA_VMW_CONNECTION_STATUS* out) {
    return record<Session>(__func__, connection, IMA_OBJECT_TYPE_CONNECTION, out, [&](Host::Impl&, const Session& of) {
        copy_slot(out->connectionAddress, of.first_remote_ip);
        copy_slot(out->remoteAddress, of.current_remote_ip);
        copy_slot(out->localAddress, of.local_ip);
        out->state = of.state;
    });
}

IMA_STATUS IMA_VMW_AddSession(IMA_OID targetOrSession, void*, void*, void*) {
    return operate(__func__, nullptr, [&](Host::Impl& impl) { return add_to(impl, targetOrSession); });
}

IMA_STATUS IMA_VMW_RemoveSession(IMA_OID session) {
    return operate(__func__, nullptr, [&](Host::Impl& impl) { return remove_session(impl, session); });
}

IMA_STATUS IMA_VMW_Rediscover(IMA_OID lhba) {
    return operate(__func__, nullptr, [&](Host::Impl& impl) {
        Adapter* on = nullptr;
        const IMA_STATUS status = find(impl, lhba, IMA_OBJECT_TYPE_LHBA, on);
        if (status == IMA_STATUS_SUCCESS) {
            impl.rediscover(*on);
        }
        return status;
    });
}

IMA_STATUS IMA_VMW_GetDiscoveryStatus(IMA_OID phba, std::uint32_t* out) {
    return operate(__func__, out, [&](Host::Impl& impl) -> IMA_STATUS {
        if (out == nullptr) {
            return IMA_ERROR_INVALID_PARAMETER;
        }
        Adapter* on = nullptr;
        const IMA_STATUS status = find(impl, phba, IMA_OBJECT_TYPE_PHBA, on);
        if (status != IMA_STATUS_SUCCESS) {
            return status;
        }
        if (impl.now() < on->discovery_known_at) {
            return IMA_ERROR_SYNC_TIMEOUT;
        }
        *out = on->discovery_outcome;
        return IMA_STATUS_SUCCESS;
    });
}

IMA_STATUS IMA_VMW_GetNicOidList(IMA_OID lhba, IMA_OID_LIST** out) {
    return list_of<Adapter>(__func__, lhba, IMA_OBJECT_TYPE_LHBA, out, [](const Adapter& on, ListMaker& maker) {
        for (const auto& each : on.nics) {
            if (each->up) {
                maker.add(IMA_OBJECT_TYPE_PNP, each->oid);
            }
        }
    });
}

IMA_STATUS IMA_VMW_GetStaticDiscoveryTargetOidList(IMA_OID lhba, IMA_OID_LIST** out) {
    return list_of<Adapter>(__func__, lhba, IMA_OBJECT_TYPE_LHBA, out, [](const Adapter& on, ListMaker& maker) {
        for (const auto& each : on.entries) {
            maker.add(IMA_OBJECT_TYPE_STATIC_DISCOVERY_TARGET, each->oid);
        }
    });
}

IMA_STATUS IMA_VMW_GetStaticDiscoveryTargetProperties(IMA_OID staticTarget,
                                                      IMA_STATIC_DISCOVERY_TARGET_PROPERTIES* out) {
    return record<StaticEntry>(__func__, staticTarget, IMA_OBJECT_TYPE_STATIC_DISCOVERY_TARGET, out,
                               [&](Host::Impl&, const StaticEntry& entry) {
                                   out->associatedLhbaOid = {IMA_OBJECT_TYPE_LHBA, OWNER, entry.adapter->logical_oid};
                                   copy_wide(out->staticTarget.targetName, entry.view.target_iqn);
                                   IMA_TARGET_ADDRESS& address = out->staticTarget.targetAddress;
                                   address.portNumber = entry.view.port;
                                   if (entry.view.by_host_name) {
                                       address.hostnameInUse = 1;
                                       copy_wide(address.id.hostname, entry.view.portal_ip);
                                   } else {
                                       copy_address(address.id.ipAddress, entry.view.portal_ip);
                                   }
                               });
}

IMA_STATUS IMA_VMW_GetInitiatorAuthParms(IMA_OID staticTarget, IMA_AUTHMETHOD method, IMA_INITIATOR_AUTHPARMS* out) {
    if (method != IMA_AUTHMETHOD_CHAP) {
        return operate(__func__, out, [](Host::Impl&) { return IMA_ERROR_NOT_SUPPORTED; });
    }
    return record<StaticEntry>(__func__, staticTarget, IMA_OBJECT_TYPE_STATIC_DISCOVERY_TARGET, out,
                               [&](Host::Impl&, const StaticEntry& entry) {
                                   if (entry.view.chap) {
                                       static constexpr std::string_view name = "chap-user";
                                       std::copy(name.begin(), name.end(), out->chapName);
                                       out->chapNameLength = name.size();
                                   }
                               });
}

IMA_STATUS IMA_RemoveStaticDiscoveryTarget(IMA_OID staticTarget) {
    return operate(__func__, nullptr, [&](Host::Impl& impl) {
        StaticEntry* entry = nullptr;
        const IMA_STATUS status = find(impl, staticTarget, IMA_OBJECT_TYPE_STATIC_DISCOVERY_TARGET, entry);
        if (status == IMA_STATUS_SUCCESS) {
            impl.remove_entry(*entry, true);
        }
        return status;
    });
}

// The memory goes back also when a fault makes the call fail: the caller has done its part.
IMA_STATUS IMA_FreeMemory(void* memory) {
    const Inside inside;
    const auto impl = current_impl();
    if (impl == nullptr || memory == nullptr) {
        return impl == nullptr ? IMA_ERROR_UNEXPECTED_OS_ERROR : IMA_ERROR_INVALID_PARAMETER;
    }
    {
        const Entered entered(*impl);
        if (impl->lists.erase(memory) == 0) {
            impl->violate(fmt::format("IMA_FreeMemory of {}: freed before, or not a list of the host", memory));
            return IMA_ERROR_INVALID_PARAMETER;
        }
        std::free(memory);
    }
    return operate(__func__, nullptr, [](Host::Impl&) { return IMA_STATUS_SUCCESS; });
}

}  // extern "C"
