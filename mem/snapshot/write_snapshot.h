// The whole set of reports as of one moment, while the run goes on. Relies on mem/base, mem/output,
// mem/state, mem/tracker and mem/report.
#pragma once

/// Writes the snapshot that is asked for, on the thread of the event that found it: nothing where
/// another thread is at one, or ends the run. The one piece of unbounded work in a hook. It calls
/// nothing of the host's, takes nothing from its heap and leaves its thread as it was: errno,
/// cancellation, floating point, signals, which wait. Whatever stack the thread has is enough, and
/// the locks of the host that it may hold are not wanted. Other threads wait while the figures are
/// copied.
void mem_write_requested_snapshot();
