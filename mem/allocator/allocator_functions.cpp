#include "mem/allocator/allocator_functions.h"

#include <atomic>
#include <cstdlib>

#include "include/tuk_mem.h"
#include "mem/state/thread_flags.h"
#include "platform/thr_exported.h"

namespace {

int empty_NewHook_function(MEM_NEW_HOOK) { return 0; }
int empty_DeleteHook_function(MEM_DELETE_HOOK) { return 0; }
std::size_t empty_tc_malloc_size_function(void*) { return 0; }
int empty_GetOwnership_function(const void*) { return 0; }

template <class FUNCTION>
bool find_function(FUNCTION& slot, const char* name) {
  slot = reinterpret_cast<FUNCTION>(thr_find_exported(name));
  return slot != nullptr;
}

// Every name is looked up, also after one was missed; ownership is only asked for when sizes are
// to be had.
bool find_all_functions() {
  bool complete = true;
  complete &= find_function(ptrfunc_AddNewHook, "MallocHook_AddNewHook");
  complete &= find_function(ptrfunc_RemoveNewHook, "MallocHook_RemoveNewHook");
  complete &= find_function(ptrfunc_AddDeleteHook, "MallocHook_AddDeleteHook");
  complete &= find_function(ptrfunc_RemoveDeleteHook, "MallocHook_RemoveDeleteHook");
  complete &= find_function(ptrfunc_tc_set_new_mode, "tc_set_new_mode");
  const bool has_size = find_function(ptrfunc_tc_malloc_size, "tc_malloc_size");
  return has_size && find_function(ptrfunc_GetOwnership, "MallocExtension_GetOwnership") &&
         complete;
}

// What the allocator says of a block that malloc gives: it may be in the process while malloc is
// another's, a sanitizer's for instance.
int ownership_of_a_block() {
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  auto* block = static_cast<int*>(std::malloc(sizeof(int)));
  if (block == nullptr) return 0;
  *block = 0;
  const int ownership = ptrfunc_GetOwnership(block);
  std::free(block);
  return ownership;
}

void install_fallbacks() {
  ptrfunc_AddNewHook = empty_NewHook_function;
  ptrfunc_RemoveNewHook = empty_NewHook_function;
  ptrfunc_AddDeleteHook = empty_DeleteHook_function;
  ptrfunc_RemoveDeleteHook = empty_DeleteHook_function;
  ptrfunc_tc_set_new_mode = nullptr;
  ptrfunc_tc_malloc_size = empty_tc_malloc_size_function;
  ptrfunc_GetOwnership = empty_GetOwnership_function;
}

}  // namespace

int (*ptrfunc_AddNewHook)(MEM_NEW_HOOK) = empty_NewHook_function;
int (*ptrfunc_RemoveNewHook)(MEM_NEW_HOOK) = empty_NewHook_function;
int (*ptrfunc_AddDeleteHook)(MEM_DELETE_HOOK) = empty_DeleteHook_function;
int (*ptrfunc_RemoveDeleteHook)(MEM_DELETE_HOOK) = empty_DeleteHook_function;
int (*ptrfunc_tc_set_new_mode)(int) = nullptr;
std::size_t (*ptrfunc_tc_malloc_size)(void*) = empty_tc_malloc_size_function;
int (*ptrfunc_GetOwnership)(const void*) = empty_GetOwnership_function;

namespace {

constinit std::atomic<bool> were_found = false;

int search() {
  if (!find_all_functions()) {
    install_fallbacks();
    return 1;
  }
  were_found = true;
  ownership_of_a_block();  // makes the allocator's extension ready before any hook runs
  return 0;
}

}  // namespace

// A mapping notified before the library's own start-up may have been here, and hooks be in place.
int init_tcmalloc_functions() { return were_found ? 0 : search(); }

// During static initialisation the allocator may not be ready to tell what it owns: that counts as
// its own.
bool mem_allocator_is_hooked() {
  constexpr int not_owned = 2;
  return were_found && ownership_of_a_block() != not_owned;
}
