#include "OstrelConnections/psp/adapter_list.h"

#include "OstrelProvider/log.h"
#include "common/text.h"

namespace {

bool contains(const AdapterName* adapters, const AdapterName& adapter_name, int count) {
    for (int i = 0; i < count; ++i) {
        if (oxr::field_view(adapters[i]) == oxr::field_view(adapter_name)) {
            return true;
        }
    }
    return false;
}

// Whether all names fit; a name that occurs twice counts once.
bool all_fit(UniqueAdapters adapters, const AdapterName* names, int num_names) {
    for (int i = 0; i < num_names; ++i) {
        if (contains(adapters.names, names[i], adapters.count)) {
            continue;
        }
        if (adapters.count == OSTREL_MAX_ADAPTERS) {
            return false;
        }
        oxr::copy_field(adapters.names[adapters.count++], oxr::field_view(names[i]));
    }
    return true;
}

}  // namespace

bool add_to_unique_adapter_list(AdapterName* adapters, const AdapterName& adapter_name, int& count) {
    if (contains(adapters, adapter_name, count)) {
        OXR_DEBUG("adapter %s already exists in unique adapter array", oxr::FieldText(adapter_name).c_str());
        return true;
    }
    if (count == OSTREL_MAX_ADAPTERS) {
        return false;
    }
    oxr::copy_field(adapters[count++], oxr::field_view(adapter_name));
    OXR_DEBUG("adapter %s added to unique adapter array", oxr::FieldText(adapter_name).c_str());
    return true;
}

bool add_all_adapters(UniqueAdapters& adapters, const AdapterName* names, int num_names) {
    if (!all_fit(adapters, names, num_names)) {
        return false;
    }
    for (int i = 0; i < num_names; ++i) {
        (void)add_to_unique_adapter_list(adapters.names, names[i], adapters.count);  // there is room
    }
    return true;
}
