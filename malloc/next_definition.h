// The definitions behind this library's own: the allocator's, or those of a library between.
#pragma once

#include <atomic>
#include <cstddef>
#include <iterator>
#include <string_view>

#include "malloc/attention.h"

/// Every function that is passed on. Those of the hook interface are there only where an allocator
/// stands behind this library that has hooks itself.
inline constexpr char const* mem_next_names[] = {
    // The C library's.
    "malloc", "calloc", "realloc", "reallocarray", "free", "posix_memalign", "aligned_alloc",
    "memalign", "valloc", "pvalloc", "malloc_usable_size",
    // operator new and operator new[]: plain, nothrow, aligned, aligned and nothrow.
    "_Znwm", "_ZnwmRKSt9nothrow_t", "_ZnwmSt11align_val_t", "_ZnwmSt11align_val_tRKSt9nothrow_t",
    "_Znam", "_ZnamRKSt9nothrow_t", "_ZnamSt11align_val_t", "_ZnamSt11align_val_tRKSt9nothrow_t",
    // operator delete and operator delete[]: the same, and with the size, plain and aligned.
    "_ZdlPv", "_ZdlPvRKSt9nothrow_t", "_ZdlPvSt11align_val_t",
    "_ZdlPvSt11align_val_tRKSt9nothrow_t", "_ZdlPvm", "_ZdlPvmSt11align_val_t", "_ZdaPv",
    "_ZdaPvRKSt9nothrow_t", "_ZdaPvSt11align_val_t", "_ZdaPvSt11align_val_tRKSt9nothrow_t",
    "_ZdaPvm", "_ZdaPvmSt11align_val_t",
    // The hook interface.
    "MallocHook_AddNewHook", "MallocHook_RemoveNewHook", "MallocHook_AddDeleteHook",
    "MallocHook_RemoveDeleteHook", "tc_set_new_mode", "tc_malloc_size",
    "MallocExtension_GetOwnership"};

/// What is behind a name; `address` is null when nothing is.
struct MEM_NEXT_DEFINITION {
  std::atomic<void*> address = nullptr;
  std::atomic<bool> is_the_allocators = false;  ///< in the module of malloc
};

/// In the order of the names.
[[gnu::visibility("hidden")]] extern constinit MEM_NEXT_DEFINITION
    mem_next_definitions[std::size(mem_next_names)];

/// Its place in the list; does not compile with a name that is not there.
struct MEM_NEXT_NAME {
  consteval MEM_NEXT_NAME(char const* name) {
    while (std::string_view(mem_next_names[index]) != name) ++index;
  }
  std::size_t index = 0;
};

inline constexpr MEM_NEXT_NAME mem_first_hook_name = "MallocHook_AddNewHook";

/// What is behind a name, called with this type: MEM_NEXT<void(void*) noexcept, "free">.
template <class FUNCTION, MEM_NEXT_NAME NAME>
class MEM_NEXT;

template <class RESULT, class... ARGUMENTS, bool NOEXCEPT, MEM_NEXT_NAME NAME>
class MEM_NEXT<RESULT(ARGUMENTS...) noexcept(NOEXCEPT), NAME> {
 public:
  [[gnu::always_inline]] static RESULT call(ARGUMENTS... arguments) noexcept(NOEXCEPT) {
    void* const address = definition.address.load(std::memory_order_relaxed);
    return reinterpret_cast<RESULT (*)(ARGUMENTS...) noexcept(NOEXCEPT)>(address)(arguments...);
  }
  static constexpr char const* name() { return mem_next_names[NAME.index]; }
  /// Whether its blocks are malloc's, whatever it calls.
  static bool is_the_allocators() { return definition.is_the_allocators; }

 private:
  static constexpr const MEM_NEXT_DEFINITION& definition = mem_next_definitions[NAME.index];
};

/// Whether the caller stands inside of the search for the definitions, on this thread, and has to
/// make do with early blocks. The first call that does not searches for them.
bool mem_is_called_by_search_or_searches();
inline bool mem_is_called_by_the_search() {
  return mem_attention_is(MEM_UNRESOLVED) && mem_is_called_by_search_or_searches();
}

/// Searches for the hook interface behind this library; whether it is the allocator's, and whole.
/// Asks nothing of that allocator, which may be the caller while it starts. The first search leaves
/// these names out: it may run inside of anything, and one that is missed costs the loader blocks.
bool mem_next_has_hooks();
