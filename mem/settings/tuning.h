// The numeric settings of the tracker. Relies on mem/base, mem/host and mem/state.
#pragma once

#include <cstdint>

#include "mem/settings/period.h"

/// Events between two samples of the timelines.
extern MEM_PERIOD mem_module_snapshot_delay;

/// Bytes of growth after which a new peak is recorded at the latest; 1 to INT64_MAX.
extern std::uint64_t mem_fileline_peak_snapshot_threshold;

/// Innermost frames left out of every captured stack: three of this library (the unwinder's
/// capture, mem_track_alloc, the hook) and two of the allocator.
extern int MEM_STACK_TRACE_IGNORE_DEPTH;

/// Whether a frame without a source file is kept, as file "Unknown".
extern bool mem_allow_no_fileline_info;

/// Read the settings of that name. A setting that is no number is reported, and throws
/// std::invalid_argument or std::out_of_range.
void mem_read_snapshot_settings();
void mem_read_ignore_depth_setting();
void mem_read_incomplete_fileline_setting();
/// Sets the fill patterns and the allocation log as the settings ask for.
void mem_read_allocator_aid_settings();
