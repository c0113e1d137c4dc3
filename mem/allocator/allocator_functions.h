// The hook interface of the process's allocator, found by name.
#pragma once

#include <cstddef>

using MEM_NEW_HOOK = void (*)(const void* block, std::size_t size);
using MEM_DELETE_HOOK = void (*)(const void* block);

/// Function slots, filled once by init_tcmalloc_functions. Without the interface the hook slots
/// accept every call and register nothing, sizes and ownership are 0, and tc_set_new_mode is null.
extern int (*ptrfunc_AddNewHook)(MEM_NEW_HOOK hook);
extern int (*ptrfunc_RemoveNewHook)(MEM_NEW_HOOK hook);
extern int (*ptrfunc_AddDeleteHook)(MEM_DELETE_HOOK hook);
extern int (*ptrfunc_RemoveDeleteHook)(MEM_DELETE_HOOK hook);
extern int (*ptrfunc_tc_set_new_mode)(int mode);
extern std::size_t (*ptrfunc_tc_malloc_size)(void* block);
extern int (*ptrfunc_GetOwnership)(const void* block);

/// Fills the slots. Returns 0 when the process has all seven functions, else 1: the set is all or
/// nothing.
int init_tcmalloc_functions();

/// Whether the hooked allocator handed out `block`.
inline bool mem_allocator_owns(const void* block) { return ptrfunc_GetOwnership(block) == 1; }

/// Bytes the hooked allocator gave `block`.
inline std::size_t mem_allocated_size(const void* block) {
  return ptrfunc_tc_malloc_size(const_cast<void*>(block));
}
