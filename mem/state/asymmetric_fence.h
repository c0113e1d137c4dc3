// A fence in two halves: next to nothing for those who pass all the time, a system call for the
// rare other side.
#pragma once

#include <atomic>

/// Whether the light half is enough: the kernel puts in the fence on behalf of those who pass. Else
/// they need locked instructions of their own. Set when the tracker comes up.
extern std::atomic<bool> mem_light_fences;

/// Asks the kernel whether it does, and the process stays ready for it. Once per process.
void mem_prepare_light_fences();

/// Between the store and the load of one who passes, and light fences are in force.
inline void mem_light_fence() { std::atomic_signal_fence(std::memory_order_seq_cst); }

/// The other side, between its store and its loads, all sequentially consistent: whoever passed its
/// light fence before now is seen by the loads, whoever passes it from now on sees the store. Where
/// the kernel does not help any more, after a filter of system calls came into force, light fences
/// are over.
void mem_heavy_fence();
