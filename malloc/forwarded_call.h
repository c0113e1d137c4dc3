// A call that was passed on to the next definition. The next one may come back: operator new calls
// malloc, reallocarray calls realloc, a stranger's function whatever it likes. Of one block the
// hooks hear once, from the outermost call that gives or takes it.
#pragma once

#include <cstddef>
#include <utility>

/// What this thread's outermost call has done so far. No destructor, no constructor: it is good to
/// the last moment of a thread.
struct MEM_CALLS_OF_THREAD {
  bool are_inside = false;
  void const* released = nullptr;  ///< the hooks know already
  void const* given = nullptr;     ///< the hooks do not know yet
  std::size_t requested = 0;       ///< of what was given
};

[[gnu::tls_model("initial-exec")]] extern constinit thread_local MEM_CALLS_OF_THREAD mem_calls;

/// For a hook or a handler of the host: it stands in the middle of a call and is no part of it.
class MEM_OUTSIDE_OF_CALLS {
 public:
  MEM_OUTSIDE_OF_CALLS() : m_are_inside(mem_calls.are_inside) {
    if (m_are_inside) [[unlikely]]
      m_calls = std::exchange(mem_calls, {});
  }
  MEM_OUTSIDE_OF_CALLS(const MEM_OUTSIDE_OF_CALLS&) = delete;
  MEM_OUTSIDE_OF_CALLS& operator=(const MEM_OUTSIDE_OF_CALLS&) = delete;
  ~MEM_OUTSIDE_OF_CALLS() {
    if (m_are_inside) [[unlikely]]
      mem_calls = m_calls;
  }

 private:
  const bool m_are_inside;
  MEM_CALLS_OF_THREAD m_calls;
};

/// A block is about to be released. Whether the hooks are to be told: an outer call may have told
/// them already, or not yet have told them that it was given.
inline bool mem_release_is_news(void const* block) {
  if (!mem_calls.are_inside) return true;
  if (block == mem_calls.given) {
    mem_calls.given = nullptr;
    return false;
  }
  return block != mem_calls.released;
}

/// As long as the next definition runs, which may call others to release the block that the hooks
/// know to be released.
class MEM_FORWARDED_CALL {
 public:
  explicit MEM_FORWARDED_CALL(void const* released = nullptr)
      : m_is_outermost(!std::exchange(mem_calls.are_inside, true)) {
    if (released != nullptr) mem_calls.released = released;
  }
  MEM_FORWARDED_CALL(const MEM_FORWARDED_CALL&) = delete;
  MEM_FORWARDED_CALL& operator=(const MEM_FORWARDED_CALL&) = delete;
  /// Also behind an exception.
  ~MEM_FORWARDED_CALL() {
    if (m_is_outermost && mem_calls.are_inside) leave(nullptr);
  }

  bool is_outermost() const { return m_is_outermost; }

  /// The call has given `block`, or null. Whether the hooks are to be told of it by the caller, who
  /// is the outermost: it is the allocator's own, or one that an inner call got from it.
  bool gives(void const* block, std::size_t requested, bool is_the_allocators) {
    if (m_is_outermost) return leave(block) || (block != nullptr && is_the_allocators);
    if (block != nullptr && (is_the_allocators || block == mem_calls.given)) keep(block, requested);
    return false;
  }

 private:
  // Whether `block` is what an inner call was given.
  static bool leave(void const* block) {
    mem_calls.are_inside = false;
    mem_calls.released = nullptr;
    return mem_calls.given != nullptr && tell_of_others(block);
  }
  static bool tell_of_others(void const* block);
  static void keep(void const* block, std::size_t requested);

  const bool m_is_outermost;
};
