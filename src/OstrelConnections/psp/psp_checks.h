// Whether the counts in a PSP reply can be true. A count is impossible when it is negative or beyond what its
// array holds; nothing else in the library looks at that again.
#pragma once

#include "OstrelConnections/psp/psp_records.h"

// Each logs the first impossible count at ERROR for `operation`, naming the record, and answers false.
bool has_possible_counts(const char* operation, const OxrLun& lun);
bool has_possible_counts(const char* operation, const OstrelPspGroupScopedTarget& target);
bool has_possible_counts(const char* operation, const OstrelPspTransportAddrs& device);
