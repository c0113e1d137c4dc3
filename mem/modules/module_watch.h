// Which modules were seen on a stack, and which of them the loader has removed since.
#pragma once

#include <link.h>

#include <atomic>
#include <cstdint>

/// Has the removal of the module that holds `address` noticed from now on. False when no module
/// does, or too many are watched (thousands): then nothing may be remembered of the address. Any
/// thread, also in a signal handler; takes no lock and allocates nothing.
bool mem_watch_module_of(std::uintptr_t address);

enum class MEM_MODULE_LOOK {
  REMOVED,  ///< at the moments that mem_loader_is_removing tells: microseconds
  MISSED,   ///< after a time in which nobody looked: also finds another module in the same place
};

/// Calls `retired` with [begin, end) for each watched module that is gone; it is watched no longer.
/// On return this is done, by whatever thread: so `retired` must neither wait for the loader nor
/// come back here. Any thread that holds none of the tracker's locks; waits for no lock of others.
void mem_retire_removed_modules(MEM_MODULE_LOOK look,
                                void (*retired)(std::uintptr_t begin, std::uintptr_t end));

/// The loader's own account of what it is doing, that debuggers read. Nothing goes on in it until
/// the first module is watched.
extern constinit std::atomic<r_debug const*> mem_loader_state;

/// Whether the loader is removing modules in one of its namespaces.
bool mem_loader_is_removing_anywhere();

/// Whether the loader is removing modules at this moment, on some thread: two loads. After a module
/// has been unmapped, and before anything can be loaded in its place, the removing thread gives the
/// loader's own records of it back to the allocator: whoever looks at releases sees every removal.
inline bool mem_loader_is_removing() {
  r_debug const* const state = mem_loader_state.load(std::memory_order_relaxed);
  if (__atomic_load_n(&state->r_state, __ATOMIC_RELAXED) == r_debug::RT_CONSISTENT &&
      state->r_version <= 1) [[likely]]
    return false;
  return mem_loader_is_removing_anywhere();
}
