#include "mem/state/thread_flags.h"

constinit thread_local bool mem_tbb_tracker_thread_local_block_recurse = false;
constinit thread_local bool mem_block_me_bool = false;
constinit thread_local void const* mem_last_block = nullptr;
constinit thread_local MEM_THREAD_PLACE mem_thread_place = MEM_THREAD_PLACE::OUTSIDE;

namespace {

bool set_blocked(bool blocked) {
  const bool was_blocked = mem_block_me_bool;
  mem_block_me_bool = blocked;
  return was_blocked;
}

}  // namespace

bool mem_block_thread_tracking() { return set_blocked(true); }
bool mem_unblock_thread_tracking() { return set_blocked(false); }
bool mem_am_blocked() { return mem_block_me_bool; }
