// How a thread shows in its line that it is inside the cat-and-mouse lock.
#pragma once

#include <cstdint>

#include "mem/state/asymmetric_fence.h"
#include "mem/state/thread_line.h"

/// The calling thread as a mouse. Its line's word counts how often it is inside, or at the door.
class MEM_MOUSE {
 public:
  explicit MEM_MOUSE(MEM_THREAD_LINE& line)
      : m_word(line.mouse), m_is_shared(mem_is_shared(line)) {}

  /// Whoever looks for mice behind a heavy fence sees it, or is seen by this thread's next load.
  void come() {
    if (m_is_shared || !mem_light_fences.load(std::memory_order_relaxed)) [[unlikely]] {
      m_word.fetch_add(1);
      return;
    }
    m_word.store(count() + 1, std::memory_order_relaxed);
    mem_light_fence();
  }

  /// How often it is there still; negative when it was not.
  std::int32_t leave() {
    if (m_is_shared) [[unlikely]]
      return m_word.fetch_sub(1, std::memory_order_acq_rel) - 1;
    const std::int32_t left = count() - 1;
    m_word.store(left, std::memory_order_release);
    return left;
  }

  /// In a child made by fork, whose thread was counted in its parent.
  void was_not_there() { m_word = 0; }

  static bool is_away(const MEM_THREAD_LINE& line) { return line.mouse.load() == 0; }

 private:
  std::int32_t count() const { return m_word.load(std::memory_order_relaxed); }

  std::atomic<std::int32_t>& m_word;
  bool m_is_shared;
};
