#include "mem/allocator/allocator_functions.h"

#include <dlfcn.h>

#include <cstdlib>

namespace {

int empty_NewHook_function(MEM_NEW_HOOK) { return 0; }
int empty_DeleteHook_function(MEM_DELETE_HOOK) { return 0; }
std::size_t empty_tc_malloc_size_function(void*) { return 0; }
int empty_GetOwnership_function(const void*) { return 0; }

template <class FUNCTION>
bool find_function(FUNCTION& slot, const char* name) {
  slot = reinterpret_cast<FUNCTION>(dlsym(RTLD_DEFAULT, name));
  const bool reported = dlerror() != nullptr;
  return !reported && slot != nullptr;
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

// Makes the allocator's extension ready before any hook runs.
void ask_for_ownership_once() {
  auto* block = static_cast<int*>(std::malloc(sizeof(int)));
  if (block == nullptr) return;
  *block = 0;
  ptrfunc_GetOwnership(block);
  std::free(block);
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

int init_tcmalloc_functions() {
  ptrfunc_AddNewHook = nullptr;
  ptrfunc_RemoveNewHook = nullptr;
  ptrfunc_AddDeleteHook = nullptr;
  ptrfunc_RemoveDeleteHook = nullptr;
  dlerror();
  if (!find_all_functions()) {
    install_fallbacks();
    return 1;
  }
  ask_for_ownership_once();
  return 0;
}
