// The unique adapter array: adapters of several volumes, each named once, for one request to the PSP or IMA.
#pragma once

#include "OstrelConnections/psp/psp_records.h"

struct UniqueAdapters {
    AdapterName names[OSTREL_MAX_ADAPTERS];
    int count = 0;
};

// Appends the name unless an equal one is there. False, with the array unchanged, when it is full.
bool add_to_unique_adapter_list(AdapterName* adapters, const AdapterName& adapter_name, int& count);

// Appends all names or, when they don't all fit, none. True when they are in the array.
bool add_all_adapters(UniqueAdapters& adapters, const AdapterName* names, int num_names);
