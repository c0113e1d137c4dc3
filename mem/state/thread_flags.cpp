#include "mem/state/thread_flags.h"

constinit thread_local bool mem_tbb_tracker_thread_local_block_recurse = false;
constinit thread_local bool mem_block_me_bool = false;
constinit thread_local MEM_THREAD_PLACE mem_thread_place = MEM_THREAD_PLACE::OUTSIDE;

bool mem_block_thread_tracking() { return std::exchange(mem_block_me_bool, true); }
bool mem_unblock_thread_tracking() { return std::exchange(mem_block_me_bool, false); }
bool mem_am_blocked() { return mem_block_me_bool; }
