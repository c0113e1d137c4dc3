// The one end of a tracked run.
#pragma once

/// Ends tracking and writes the reports, unless that has been done. Inside mem_tracker_gate, with
/// the thread's tracking blocked. False, with nothing done, on a thread that stands in the
/// tracker's lock: it would wait for itself; and in a forked child that keeps its records.
bool mem_end_tracking();
