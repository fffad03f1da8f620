// Descriptors on the control device, between the file calls and the device's own.
#pragma once

#include "simhost/host.h"

namespace simhost {

bool may_be_ours(int fd);                          // without the lock; false: it surely isn't
bool is_control_device(Host::Impl& impl, int fd);  // with the lock held
void forget_descriptors();

}  // namespace simhost
