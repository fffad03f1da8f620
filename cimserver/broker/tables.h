// The broker's own tables; a broker's `hdl` is its Broker.
#pragma once

#include "cmpi/cmpi.h"

namespace cimserver {

class Broker;

extern const CMPIBrokerFT broker_table;
extern const CMPIBrokerEncFT factory_table;

inline const Broker& broker_of(const CMPIBroker* handle) {
    return *static_cast<const Broker*>(handle->hdl);
}

}  // namespace cimserver
