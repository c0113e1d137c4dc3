// The interface by which hooks are added and blocks are asked about, under the names of the
// allocators that have one. Where one of those is in the process and answers malloc, everything is
// left to it: it has the same functions behind these. One that does not answer malloc keeps the
// hooks that are its own, which it adds and removes by these names and looks whether that was done.
#include <dlfcn.h>

#include <cstdlib>

#include "malloc/attention.h"
#include "malloc/block_size.h"
#include "malloc/hook_list.h"
#include "malloc/next_definition.h"
#include "malloc/own_definition.h"

#define EXPORTED extern "C" [[gnu::visibility("default")]]

namespace {

using NEXT_AddNewHook = MEM_NEXT<int(MEM_NEW_HOOK), "MallocHook_AddNewHook">;
using NEXT_RemoveNewHook = MEM_NEXT<int(MEM_NEW_HOOK), "MallocHook_RemoveNewHook">;
using NEXT_AddDeleteHook = MEM_NEXT<int(MEM_DELETE_HOOK), "MallocHook_AddDeleteHook">;
using NEXT_RemoveDeleteHook = MEM_NEXT<int(MEM_DELETE_HOOK), "MallocHook_RemoveDeleteHook">;
using NEXT_tc_set_new_mode = MEM_NEXT<int(int), "tc_set_new_mode">;
using NEXT_tc_malloc_size = MEM_NEXT<std::size_t(void*), "tc_malloc_size">;
using NEXT_GetOwnership = MEM_NEXT<int(const void*), "MallocExtension_GetOwnership">;

// What GetOwnership answers.
enum OWNERSHIP : int { OWNED = 1, NOT_OWNED = 2 };

enum class ANSWER : char { NOT_KNOWN, YES, NO };

// Found out when it is asked first. Two threads find the same.
bool remembered(std::atomic<ANSWER>& answer, bool (*find_out)()) {
  if (answer == ANSWER::NOT_KNOWN) [[unlikely]]
    answer = find_out() ? ANSWER::YES : ANSWER::NO;
  return answer == ANSWER::YES;
}

constinit std::atomic<ANSWER> next_has_hooks = ANSWER::NOT_KNOWN;
bool leaves_it_to_the_next() { return remembered(next_has_hooks, mem_next_has_hooks); }

[[gnu::tls_model("initial-exec")]] constinit thread_local void const* watched = nullptr;

void watch(const void* block, std::size_t) { watched = block; }

// The executable may have a malloc of its own, or another library stand before this one.
bool malloc_comes_here() {
  mem_new_hooks.add(watch);
  void* const volatile block = std::malloc(1);
  mem_new_hooks.remove(watch);
  const bool came_here = watched == block;
  std::free(block);
  return came_here;
}

// The sizes of another library than the blocks would be read from where they are not.
bool sizes_are_known() {
  return MEM_NEXT<std::size_t(void*), "malloc_usable_size">::is_the_allocators();
}

constinit std::atomic<ANSWER> blocks_are_hooked = ANSWER::NOT_KNOWN;
bool can_hook_blocks() {
  return remembered(blocks_are_hooked, [] { return malloc_comes_here() && sizes_are_known(); });
}

// The function of this name that the hook's own module defines, if it does.
template <class HOOK>
auto function_of_owner(HOOK hook, char const* name) {
  return reinterpret_cast<int (*)(HOOK)>(
      mem_definition_in_module_of(reinterpret_cast<void const*>(hook), name));
}

template <class NEXT, class HOOK>
int add(MEM_HOOK_LIST<HOOK>& hooks, HOOK hook) {
  if (leaves_it_to_the_next()) return NEXT::call(hook);
  if (const auto owners = function_of_owner(hook, NEXT::name())) return owners(hook);
  return can_hook_blocks() ? hooks.add(hook) : 0;
}

template <class NEXT, class HOOK>
int remove(MEM_HOOK_LIST<HOOK>& hooks, HOOK hook) {
  if (leaves_it_to_the_next()) return NEXT::call(hook);
  if (const auto owners = function_of_owner(hook, NEXT::name())) return owners(hook);
  return hooks.remove(hook);
}

// Neither in a module nor among the early blocks, which are in this one.
bool may_be_of_the_heap(const void* block) {
  dl_find_object module;
  return block != nullptr && _dl_find_object(const_cast<void*>(block), &module) != 0;
}

}  // namespace

EXPORTED int MallocHook_AddNewHook(MEM_NEW_HOOK hook) {
  return add<NEXT_AddNewHook>(mem_new_hooks, hook);
}

EXPORTED int MallocHook_RemoveNewHook(MEM_NEW_HOOK hook) {
  return remove<NEXT_RemoveNewHook>(mem_new_hooks, hook);
}

EXPORTED int MallocHook_AddDeleteHook(MEM_DELETE_HOOK hook) {
  return add<NEXT_AddDeleteHook>(mem_delete_hooks, hook);
}

EXPORTED int MallocHook_RemoveDeleteHook(MEM_DELETE_HOOK hook) {
  return remove<NEXT_RemoveDeleteHook>(mem_delete_hooks, hook);
}

// 1: malloc calls the new-handler before it fails. Returns the mode so far.
EXPORTED int tc_set_new_mode(int mode) {
  if (leaves_it_to_the_next()) return NEXT_tc_set_new_mode::call(mode);
  const std::uint64_t before =
      mode != 0 ? mem_attention.fetch_or(MEM_NEW_HANDLER_WANTED)
                : mem_attention.fetch_and(~std::uint64_t{MEM_NEW_HANDLER_WANTED});
  return (before & MEM_NEW_HANDLER_WANTED) != 0 ? 1 : 0;
}

EXPORTED std::size_t tc_malloc_size(void* block) {
  return leaves_it_to_the_next() ? NEXT_tc_malloc_size::call(block) : mem_block_size(block);
}

// Of what a hook was told there is no doubt; of an address that anybody asks about, only what it
// can't be is known.
EXPORTED int MallocExtension_GetOwnership(const void* block) {
  if (block != nullptr && block == mem_told_of) return OWNED;
  if (leaves_it_to_the_next()) return NEXT_GetOwnership::call(block);
  return can_hook_blocks() && may_be_of_the_heap(block) ? OWNED : NOT_OWNED;
}
