#include "mem/state/thread_flags.h"

#include <utility>

constinit thread_local bool mem_tbb_tracker_thread_local_block_recurse = false;
constinit thread_local bool mem_block_me_bool = false;
constinit thread_local bool mem_has_stepped_out = false;

bool mem_block_thread_tracking() { return std::exchange(mem_block_me_bool, true); }
bool mem_unblock_thread_tracking() { return std::exchange(mem_block_me_bool, false); }
bool mem_am_blocked() { return mem_block_me_bool; }
