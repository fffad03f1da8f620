// The adapters of several volumes without duplicates, for one request to the PSP or IMA.
#pragma once

#include "OstrelConnections/psp/psp_records.h"

struct UniqueAdapters {
    AdapterName names[OSTREL_MAX_ADAPTERS];
    int count = 0;
};

// Appends the name unless the array contains it. False, with the array unchanged, if it is full.
bool add_to_unique_adapter_list(AdapterName* adapters, const AdapterName& adapter_name, int& count);

// Appends all names or, if they do not all fit, none. True if they are in the array.
bool add_all_adapters(UniqueAdapters& adapters, const AdapterName* names, int num_names);
