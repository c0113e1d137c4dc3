// The hooks, and what they are told.
#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

#include "malloc/attention.h"
#include "malloc/forwarded_call.h"

using MEM_NEW_HOOK = void (*)(const void* block, std::size_t size);
using MEM_DELETE_HOOK = void (*)(const void* block);

/// Any thread, at any time, also in a child made by fork: there is no lock.
template <class HOOK>
class MEM_HOOK_LIST {
 public:
  /// 1, or 0 when there are too many. The same hook may be there twice.
  int add(HOOK hook) {
    mem_attention += MEM_ONE_HOOK;
    return replace(nullptr, hook) || forget();
  }
  /// 1, or 0 when there was none. It may still be running on other threads.
  int remove(HOOK hook) {
    if (!replace(hook, nullptr)) return 0;
    forget();
    return 1;
  }
  template <class... ARGUMENTS>
  [[gnu::always_inline]] void call(ARGUMENTS... arguments) const {
    for (const std::atomic<HOOK>& place : m_hooks)
      if (const HOOK hook = place.load(std::memory_order_acquire)) hook(arguments...);
  }

 private:
  bool replace(HOOK before, HOOK after) {
    if (before == after) return false;
    for (std::atomic<HOOK>& place : m_hooks)
      if (HOOK expected = before; place.compare_exchange_strong(expected, after)) return true;
    return false;
  }
  static bool forget() {
    mem_attention -= MEM_ONE_HOOK;
    return false;
  }

  std::atomic<HOOK> m_hooks[7] = {};
};

extern constinit MEM_HOOK_LIST<MEM_NEW_HOOK> mem_new_hooks;
extern constinit MEM_HOOK_LIST<MEM_DELETE_HOOK> mem_delete_hooks;

/// The block that this thread's hooks are being told of.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local void const* mem_told_of;

/// While hooks run: what they allocate is no part of the call that they are told of.
class MEM_HOOKS_RUNNING {
 public:
  explicit MEM_HOOKS_RUNNING(void const* block) : m_told_of(std::exchange(mem_told_of, block)) {}
  MEM_HOOKS_RUNNING(const MEM_HOOKS_RUNNING&) = delete;
  MEM_HOOKS_RUNNING& operator=(const MEM_HOOKS_RUNNING&) = delete;
  ~MEM_HOOKS_RUNNING() { mem_told_of = m_told_of; }

 private:
  void const* const m_told_of;
  const MEM_OUTSIDE_OF_CALLS m_outside;
};

/// Call the hooks. The caller is the frame that stands in front of a hook of new blocks.
[[gnu::always_inline]] inline void mem_tell_of_new_block(void const* block, std::size_t requested) {
  const MEM_HOOKS_RUNNING running(block);
  mem_new_hooks.call(block, requested);
}
[[gnu::always_inline]] inline void mem_tell_of_release(void const* block) {
  const MEM_HOOKS_RUNNING running(block);
  mem_delete_hooks.call(block);
}
