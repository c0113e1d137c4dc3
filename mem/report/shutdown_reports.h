// The reports that only the shutdown writes, but for the last one inside its cat section.
#pragma once

#include <iosfwd>

#include "include/tuk_mem.h"

/// Load address, name and path of every module that was charged, by name.
void mem_write_base_addresses(std::ostream& out);

/// Every address that the frame filters rejected, with what it was taken for.
void mem_write_filtered_addresses(std::ostream& out);

/// The process's own figures at every sample.
void mem_write_auxiliary_timeline(std::ostream& out);

/// The counters of bins and of tags in units of 2^20 bytes.
void mem_write_bin_stats_in_mib(std::ostream& out);
void mem_write_tag_stats_in_mib(std::ostream& out);

/// Every site that still has live blocks, and their sum.
void mem_write_full_leak_report();

/// The process's bytes not freed and its peak, appended to a file that many processes share.
void mem_write_fast_leak_report();

/// What the reports are of. Not inside the cat section: the process's modules are looked at.
void mem_write_run_file(std::ostream& out, MEM_TRACKING_GRANULARITY granularity);
