// Where the tracker stands in its life.
#pragma once

#include <atomic>

#include "mem/base/gate.h"

/// Set once initialisation has run; never cleared.
extern std::atomic<bool> mem_tbb_tracker_inited;

/// Set by the shutdown, before it enters as the cat: an event that enters the cat-and-mouse lock
/// after that finds it set and leaves the records alone.
extern std::atomic<bool> mem_tbb_tracking_ended;

/// Set once the end has written its reports, or found none to write.
extern std::atomic<bool> mem_tbb_reports_are_written;

/// Initialisation runs inside, and every end: the first comer does the work, others wait for it.
extern MEM_GATE mem_tracker_gate;

/// Whether this is the process whose books these are. One that no fork handler has heard of (by
/// _Fork or clone) has a copy of them, or the same ones.
bool mem_is_tracked_process();
/// It is, from now on.
void mem_note_tracked_process();

inline bool mem_tbb_tracker_is_inited() { return mem_tbb_tracker_inited; }
