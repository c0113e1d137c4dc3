// Asking for a snapshot of the reports, and the event that finds one due. No thread of the library
// waits for it: whichever thread's event comes next writes it.
#pragma once

#include <atomic>

#include "mem/base/part.h"

/// Set while a snapshot is asked for, or an interval is running: every event looks at it.
extern std::atomic<bool> mem_snapshot_may_be_due;

/// Looks whether one is due, and has it written. Outside the tracker's lock, on a thread that is
/// not marked as inside the tracker.
void mem_write_snapshot_if_due();

/// The last step of an event.
inline void mem_end_event() {
  if (mem_snapshot_may_be_due.load(std::memory_order_relaxed)) [[unlikely]]
    mem_write_snapshot_if_due();
}

/// Hands in what writes one. It has to be able to say no, and to call mem_take_snapshot_request
/// otherwise.
void mem_set_snapshot_writer(void (*write)());

/// Whether somebody still asks: then it is for the caller to write, and to say when it has.
bool mem_take_snapshot_request();
void mem_snapshot_is_done();

/// The run ends: its last reports answer who still asks. Says so where the host took the signal.
void mem_end_snapshots();

/// Which setting names the leak reports, as start-up found it: no environment is read in a hook.
extern bool mem_snapshots_in_vx_mode;

/// Reads the settings of interval and signal, and obeys them where something is tracked.
extern const MEM_PART mem_snapshots_part;
