// Whether a call may go straight to the next definition.
#pragma once

#include <atomic>
#include <cstdint>

/// Why calls may not: flags, and counts of what there may be several of. Zero in the long run of a
/// process that nobody profiles.
enum MEM_ATTENTION : std::uint64_t {
  MEM_UNRESOLVED = 1,            ///< the next definitions are not known yet
  MEM_NEW_HANDLER_WANTED = 2,    ///< malloc calls the new-handler before it fails
  MEM_ONE_HOOK = 1 << 8,         ///< counts the hooks
  MEM_ONE_EARLY_BLOCK = 1 << 16  ///< counts the early blocks that live
};

// Hidden also where it is only declared: the fast path reads it without asking where it is.
[[gnu::visibility("hidden")]] extern constinit std::atomic<std::uint64_t> mem_attention;

/// The fast path's only question. Acquires what was known when the answer became yes.
[[gnu::always_inline]] inline bool mem_needs_no_attention() {
  return mem_attention.load(std::memory_order_acquire) == 0;
}

inline bool mem_attention_is(MEM_ATTENTION flag) { return (mem_attention & flag) != 0; }
