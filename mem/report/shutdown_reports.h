// The reports that only the shutdown writes, inside its cat section.
#pragma once

#include <iosfwd>

/// Load address, name and path of every module that was charged, by name.
void mem_write_base_addresses(std::ostream& out);

/// Every address that the frame filters rejected, with what it was taken for.
void mem_write_filtered_addresses(std::ostream& out);

/// Every site that still has live blocks, and their sum.
void mem_write_full_leak_report();

/// The process's bytes not freed and its peak, appended to a file that many processes share.
void mem_write_fast_leak_report();
