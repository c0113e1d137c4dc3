#include "mem/state/tracker_state.h"

constinit std::atomic<bool> mem_tbb_tracker_inited = false;
constinit std::atomic<bool> mem_tbb_tracking_ended = false;
constinit std::atomic<bool> mem_tbb_reports_are_written = false;
constinit MEM_GATE mem_tracker_gate;
