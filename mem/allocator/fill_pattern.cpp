// Filling new and released blocks with a byte, a debugging aid.
#include <atomic>
#include <cstring>

#include "include/tuk_mem.h"
#include "mem/allocator/allocator_functions.h"
#include "mem/allocator/hook_switch.h"
#include "mem/allocator/kept_contents.h"

namespace {

constinit std::atomic<int> alloc_pattern = 0;
constinit std::atomic<int> free_pattern = 0;
constinit MEM_HOOK_SWITCH alloc_pattern_enabled;
constinit MEM_HOOK_SWITCH free_pattern_enabled;

void mem_tcmalloc_pattern_new_hook(const void* ptr, std::size_t size) {
  if (!mem_allocator_owns(ptr) || mem_contents_are_kept(__builtin_frame_address(0))) return;
  std::memset(const_cast<void*>(ptr), alloc_pattern, size);
}

void mem_tcmalloc_pattern_delete_hook(const void* ptr) {
  if (!mem_allocator_owns(ptr) || mem_contents_are_kept(__builtin_frame_address(0))) return;
  std::memset(const_cast<void*>(ptr), free_pattern, mem_allocated_size(ptr));
}

void change_new_hook(bool on) {
  (on ? ptrfunc_AddNewHook : ptrfunc_RemoveNewHook)(mem_tcmalloc_pattern_new_hook);
}

void change_delete_hook(bool on) {
  (on ? ptrfunc_AddDeleteHook : ptrfunc_RemoveDeleteHook)(mem_tcmalloc_pattern_delete_hook);
}

}  // namespace

void mem_set_alloc_pattern(int pattern) {
  alloc_pattern = pattern;
  mem_find_keeping_functions();
  alloc_pattern_enabled.turn(true, change_new_hook);
}

void mem_set_free_pattern(int pattern) {
  free_pattern = pattern;
  mem_find_keeping_functions();
  free_pattern_enabled.turn(true, change_delete_hook);
}

void mem_disable_alloc_patterns() {
  alloc_pattern_enabled.turn(false, change_new_hook);
  free_pattern_enabled.turn(false, change_delete_hook);
}
