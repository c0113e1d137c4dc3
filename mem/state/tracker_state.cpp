#include "mem/state/tracker_state.h"

#include "platform/raw_syscall.h"

namespace {

constinit std::atomic<long> tracked_process = 0;

}  // namespace

constinit std::atomic<bool> mem_tbb_tracker_inited = false;
constinit std::atomic<bool> mem_tbb_tracking_ended = false;
constinit std::atomic<bool> mem_tbb_reports_are_written = false;
constinit MEM_GATE mem_tracker_gate;

bool mem_is_tracked_process() { return thr_raw_syscall(SYS_getpid) == tracked_process; }
void mem_note_tracked_process() { tracked_process = thr_raw_syscall(SYS_getpid); }
