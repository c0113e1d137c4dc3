// Filling new and released blocks with a byte, a debugging aid.
#include <cstring>
#include <utility>

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"

namespace {

constinit int alloc_pattern = 0;
constinit int free_pattern = 0;
constinit bool alloc_pattern_enabled = false;
constinit bool free_pattern_enabled = false;

void mem_tcmalloc_pattern_new_hook(const void* ptr, std::size_t size) {
  if (mem_allocator_owns(ptr)) std::memset(const_cast<void*>(ptr), alloc_pattern, size);
}

void mem_tcmalloc_pattern_delete_hook(const void* ptr) {
  if (mem_allocator_owns(ptr))
    std::memset(const_cast<void*>(ptr), free_pattern, mem_allocated_size(ptr));
}

}  // namespace

void mem_set_alloc_pattern(int pattern) {
  alloc_pattern = pattern;
  // The allocator would take the same hook twice, and give it back only once.
  if (!std::exchange(alloc_pattern_enabled, true))
    ptrfunc_AddNewHook(mem_tcmalloc_pattern_new_hook);
}

void mem_set_free_pattern(int pattern) {
  free_pattern = pattern;
  if (!std::exchange(free_pattern_enabled, true))
    ptrfunc_AddDeleteHook(mem_tcmalloc_pattern_delete_hook);
}

void mem_disable_alloc_patterns() {
  if (std::exchange(alloc_pattern_enabled, false))
    ptrfunc_RemoveNewHook(mem_tcmalloc_pattern_new_hook);
  if (std::exchange(free_pattern_enabled, false))
    ptrfunc_RemoveDeleteHook(mem_tcmalloc_pattern_delete_hook);
}
