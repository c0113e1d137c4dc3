// A lock in a word of what it guards, so that taking it and changing that is one line of cache.
#pragma once

#include <atomic>
#include <cstdint>

#include "mem/base/back_off.h"
#include "mem/base/lifecycle.h"

/// Holds a guard word for a scope: 0 free, 1 held. For a few instructions, and no other lock is
/// taken meanwhile. In a child made by fork whoever held it may be gone, and nobody else is there.
class MEM_GUARDED {
 public:
  explicit MEM_GUARDED(std::uint32_t& word) : m_word(word) {
    if (m_word.exchange(1, std::memory_order_acquire) != 0) [[unlikely]]
      wait();
  }
  MEM_GUARDED(const MEM_GUARDED&) = delete;
  MEM_GUARDED& operator=(const MEM_GUARDED&) = delete;
  ~MEM_GUARDED() { m_word.store(0, std::memory_order_release); }

 private:
  [[gnu::cold, gnu::noinline]] void wait() {
    MEM_BACK_OFF back_off;
    do {
      if (mem_forked_inside) return;
      back_off.pause();
    } while (m_word.load(std::memory_order_relaxed) != 0 ||
             m_word.exchange(1, std::memory_order_acquire) != 0);
  }

  std::atomic_ref<std::uint32_t> m_word;
};
