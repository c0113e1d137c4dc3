// The order in which reports list allocation sites.
#pragma once

#include <vector>

/// The addresses of all records, largest peak bytes first; equal peaks in any order. Hold
/// mem_trace_lock.
std::vector<void const*> mem_sites_by_peak();
