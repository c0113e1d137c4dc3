#include "mem/oom/spare_memory.h"

#include <string.h>

#include <cstdlib>

#include "include/tuk_mem.h"
#include "mem/base/critical_section.h"

constinit bool mem_out_of_memory_already_reported = false;

namespace {

constexpr std::size_t spare_block_size = 4096;

[[gnu::tls_model("initial-exec")]] constinit thread_local void* mem_reserved_calloc_memory =
    nullptr;
constinit void* mem_reserved_main_thread_calloc_memory = nullptr;

// Filled with zeros, so that the pages are really committed. Not by memset: the compiler makes one
// calloc of the two calls, and calloc leaves fresh pages untouched.
void reserve(void*& block) {
  if (block != nullptr) return;
  void* fresh = std::malloc(spare_block_size);
  if (fresh == nullptr) mem_out_of_memory();
  explicit_bzero(fresh, spare_block_size);
  block = fresh;
}

void release(void*& block) {
  std::free(block);
  block = nullptr;
}

}  // namespace

void mem_reserve_spare_blocks() {
  if (mem_out_of_memory_already_reported) return;
  reserve(mem_reserved_calloc_memory);
  reserve(mem_reserved_main_thread_calloc_memory);
}

void mem_release_spare_blocks() {
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
