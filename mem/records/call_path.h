// The figures of a call path, and whose a live block is.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "include/tuk_mem.h"

/// A path by which a site was reached: its frames are a node of the tree of callers. The figures
/// change under the guard of the site's record, together with the site's own. One line of cache.
struct alignas(64) MEM_CALL_PATH {
  std::atomic<MEM_ADDRESS_TRACKER*> site;  ///< null after a reset, until it is charged again
  std::uint32_t node;                      ///< number of its innermost frame's node
  std::uint32_t bin;                       ///< with is_of_catch_all
  std::int64_t current_bytes = 0;
  std::int64_t peak_bytes = 0;
  std::uint64_t cumulative_bytes = 0;
  std::int32_t current_blocks = 0;
  std::int32_t peak_blocks = 0;
  std::uint64_t cumulative_blocks = 0;
  std::uint64_t temporary_blocks = 0;  ///< freed by their thread before its next allocation

  static constexpr std::uint32_t is_of_catch_all = 1U << 31;

  /// Hold the site's record, as for the next.
  void charge(std::size_t allocated) {
    current_blocks += 1;
    current_bytes += static_cast<std::int64_t>(allocated);
    cumulative_blocks += 1;
    cumulative_bytes += allocated;
  }
  void credit(std::size_t allocated, bool is_temporary) {
    current_blocks -= 1;
    current_bytes -= static_cast<std::int64_t>(allocated);
    temporary_blocks += is_temporary ? 1 : 0;
  }
};
static_assert(sizeof(MEM_CALL_PATH) == 64);

/// What a live block is charged to: a site, or one of its call paths. As small as a pointer: either
/// of both may be there at any time, and most programs have one kind only.
class MEM_BLOCK_OWNER {
 public:
  MEM_BLOCK_OWNER() = default;
  explicit(false) MEM_BLOCK_OWNER(MEM_ADDRESS_TRACKER* site)
      : m_word(reinterpret_cast<std::uintptr_t>(site)) {}
  explicit(false) MEM_BLOCK_OWNER(MEM_CALL_PATH* path)
      : m_word(reinterpret_cast<std::uintptr_t>(path) | 1) {}

  MEM_CALL_PATH* path() const {
    return (m_word & 1) == 0 ? nullptr : reinterpret_cast<MEM_CALL_PATH*>(m_word - 1);
  }
  /// Null when the block is not known.
  MEM_ADDRESS_TRACKER* site() const {
    if ((m_word & 1) == 0) [[likely]]
      return reinterpret_cast<MEM_ADDRESS_TRACKER*>(m_word);
    return path()->site.load(std::memory_order_relaxed);
  }

 private:
  std::uintptr_t m_word = 0;
};
