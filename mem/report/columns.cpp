#include "mem/report/columns.h"

#include "mem/report/report_text.h"

namespace {

// Everything is printed signed, so that a catch-all record below zero reads as what it is.
template <auto FIELD>
void print_bytes(MEM_REPORT_TEXT& out, const MEMORY_TRACKER_BASE& record) {
  out << static_cast<std::int64_t>(record.*FIELD);
}

template <auto FIELD>
void print_blocks(MEM_REPORT_TEXT& out, const MEMORY_TRACKER_BASE& record) {
  out << static_cast<std::int32_t>(record.*FIELD);
}

using RECORD = MEMORY_TRACKER_BASE;

}  // namespace

namespace MEM_COLUMN {
const MEM_COUNTER_COLUMN current_bytes = {"Current bytes", print_bytes<&RECORD::current_bytes>};
const MEM_COUNTER_COLUMN max_bytes = {"Max bytes", print_bytes<&RECORD::max_bytes>};
const MEM_COUNTER_COLUMN peak_bytes = {"Peak bytes", print_bytes<&RECORD::peak_bytes>};
const MEM_COUNTER_COLUMN cumulative_bytes = {"Cumulative bytes",
                                             print_bytes<&RECORD::cumulative_bytes>};
const MEM_COUNTER_COLUMN cumulative_requested_bytes = {
    "Cumulative requested bytes", print_bytes<&RECORD::cumulative_requested_bytes>};
const MEM_COUNTER_COLUMN cumulative_mismatched_bytes = {
    "Cumulative mismatched bytes", print_bytes<&RECORD::cumulative_mismatched_bytes>};
const MEM_COUNTER_COLUMN current_blocks = {"Current blocks", print_blocks<&RECORD::current_blocks>};
const MEM_COUNTER_COLUMN max_blocks = {"Max blocks", print_blocks<&RECORD::max_blocks>};
const MEM_COUNTER_COLUMN peak_blocks = {"Peak blocks", print_blocks<&RECORD::peak_blocks>};
const MEM_COUNTER_COLUMN cumulative_blocks = {
    "Cumulative blocks",
    [](MEM_REPORT_TEXT& out, const RECORD& record) { out << record.cumulative_blocks; }};
}  // namespace MEM_COLUMN
