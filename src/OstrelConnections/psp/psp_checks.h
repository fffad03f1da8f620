// Whether the counts in a PSP reply can be true. A count is impossible if it is negative or larger than its array.
// Whoever reads an accepted record may rely on its counts.
#pragma once

#include "OstrelConnections/psp/psp_records.h"

// Each returns false on the first impossible count and logs it with the record's name, at ERROR, for `operation`.
bool has_possible_counts(const char* operation, const OxrLun& lun);
bool has_possible_counts(const char* operation, const OstrelPspGroupScopedTarget& target);
bool has_possible_counts(const char* operation, const OstrelPspTransportAddrs& device);
