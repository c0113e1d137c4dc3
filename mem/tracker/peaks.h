// The process's memory peaks: when one is recorded, and what is kept of it.
#pragma once

#include <cstdint>

#include "mem/base/part.h"
#include "mem/records/site_snapshot.h"

/// The highest peak handed on by a flush; bytes.
std::int64_t mem_flushed_peak_memory();

/// The total from which on a peak is recorded.
std::int64_t mem_next_peak();

/// Looks at the total before a release is subtracted from it. At a new peak copies every site's
/// current figures into its peak figures, as the cat: call outside the tracker's lock. Whether a
/// peak was recorded.
bool mem_check_peak();

/// Forgets the last recorded peak, so that the next phase records its own from the start.
void mem_rearm_peak_detection();

/// The detector, rearmed by a reset, and what the last flush kept, which a reset leaves.
extern const MEM_PART mem_peaks_part;

/// Brings back the peak figures of every site, bin and tag, and the peak's place in the timelines,
/// as the last flush found them, unless a higher peak has been recorded since. Inside the cat
/// section.
void mem_restore_flushed_peak();

/// Whether mem_restore_flushed_peak would bring anything back.
bool mem_flushed_peak_is_higher();
/// Puts the same figures into a copy of the sites. Inside the cat section.
void mem_show_flushed_peak(MEM_SITE_SNAPSHOT& sites);
