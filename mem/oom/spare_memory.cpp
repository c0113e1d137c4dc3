#include "mem/oom/spare_memory.h"

#include <cstdlib>

#include "include/tuk_mem.h"
#include "mem/base/critical_section.h"
#include "mem/oom/zeroed_block.h"
#include "mem/state/thread_flags.h"

constinit std::atomic<bool> mem_out_of_memory_already_reported = false;

namespace {

constexpr std::size_t spare_block_size = 4096;

using SPARE_BLOCK = std::atomic<void*>;

[[gnu::tls_model("initial-exec")]] constinit thread_local SPARE_BLOCK mem_reserved_calloc_memory =
    nullptr;
constinit SPARE_BLOCK mem_reserved_main_thread_calloc_memory = nullptr;

// The critical section keeps threads apart; where memory has run out, and after the last teardown,
// exchanging the pointers is all there is.
void reserve(SPARE_BLOCK& block) {
  if (block != nullptr) return;
  void* fresh = mem_allocate_zeroed(spare_block_size);
  void* none = nullptr;
  if (!block.compare_exchange_strong(none, fresh)) std::free(fresh);
}

// Forgotten first: a child forked in between loses the block, and does not free it again.
void release(SPARE_BLOCK& block) { std::free(block.exchange(nullptr)); }

}  // namespace

void mem_reserve_spare_blocks() {
  if (mem_out_of_memory_already_reported) return;
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  reserve(mem_reserved_calloc_memory);
  reserve(mem_reserved_main_thread_calloc_memory);
}

void mem_release_spare_blocks() {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  release(mem_reserved_calloc_memory);
  release(mem_reserved_main_thread_calloc_memory);
}

void mem_allocate_spare_memory() {
  const MEM_CRITICAL_SECTION_GUARD guard;
  mem_reserve_spare_blocks();
}

void mem_free_spare_memory() {
  const MEM_CRITICAL_SECTION_GUARD guard;
  mem_release_spare_blocks();
}
