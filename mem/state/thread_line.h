// A cache line for each thread, for what it writes at every event.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

/// Written by its thread only, and only inside the tracker's lock, but for the mouse word: whoever
/// is inside as the cat sees all lines at rest and may change them.
struct alignas(64) MEM_THREAD_LINE {
  std::atomic<std::int32_t> mouse{0};       ///< the cat-and-mouse lock's
  std::atomic<std::int64_t> event_room{0};  ///< mem_snapshot_count's
  std::atomic<std::int64_t> byte_room{0};   ///< mem_current_bytes's
};

/// So many threads have a line of their own. The others share the first line, which is nobody's, at
/// the price of locked instructions.
inline constexpr std::size_t mem_most_own_lines = 256;

extern std::array<MEM_THREAD_LINE, 1 + mem_most_own_lines> mem_thread_lines;

inline bool mem_is_shared(const MEM_THREAD_LINE& line) { return &line == mem_thread_lines.data(); }

/// Null until the thread has asked for one. The initial-exec model keeps the first access on a
/// thread from allocating.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local MEM_THREAD_LINE* mem_own_line;

/// Gives the calling thread a line: a free one, or that of a thread that is gone, with what that
/// one has left in it; the shared one when there is none. No lock, no heap, and nothing is left to
/// be done when the thread ends.
MEM_THREAD_LINE& mem_claim_thread_line();

/// The calling thread's line.
inline MEM_THREAD_LINE& mem_thread_line() {
  if (mem_own_line == nullptr) [[unlikely]]
    return mem_claim_thread_line();
  return *mem_own_line;
}

/// All lines that have ever been used.
std::span<MEM_THREAD_LINE> mem_used_thread_lines();

/// In a child made by fork: nobody is inside, and the lines of the parent's threads are free.
void mem_abandon_thread_lines();
