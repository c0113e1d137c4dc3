// A call that was passed on to the next definition. The next one may come back: operator new calls
// malloc, reallocarray calls realloc, a stranger's function whatever it likes. Of one block the
// hooks hear once, from the outermost call that gives or takes it.
#pragma once

#include <cstddef>
#include <utility>

/// What this thread's outermost call has done so far. No destructor, no constructor: it is good to
/// the last moment of a thread. Calls are told apart by their frames, since one that a new-handler
/// jumps out of never says that it is over.
struct MEM_CALLS_OF_THREAD {
  void const* outermost = nullptr;  ///< its frame; null between calls
  void const* failed = nullptr;     ///< where an inner call returned to that found no memory
  void const* released = nullptr;   ///< the hooks know already
  void const* given = nullptr;      ///< the hooks do not know yet
  std::size_t requested = 0;        ///< of what was given

  /// The stack grows down: from above, the outermost call would have returned.
  bool is_left_from(void const* frame) const { return frame >= outermost; }

  /// What comes after a failure is the new-handler's, or whoever's it has jumped to, unless it is
  /// the same call tried again.
  bool has_part(void const* frame, void const* caller) const {
    return !is_left_from(frame) && (failed == nullptr || failed == caller);
  }
};

[[gnu::tls_model("initial-exec")]] extern constinit thread_local MEM_CALLS_OF_THREAD mem_calls;

/// For a hook or a handler of the host: it stands in the middle of a call and is no part of it.
class MEM_OUTSIDE_OF_CALLS {
 public:
  MEM_OUTSIDE_OF_CALLS() : m_are_inside(mem_calls.outermost != nullptr) {
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
  if (mem_calls.outermost == nullptr) return true;
  if (block == mem_calls.given) {
    mem_calls.given = nullptr;
    return false;
  }
  return block != mem_calls.released;
}

/// As long as the next definition runs, which may call others to release the block that the hooks
/// know to be `released`. `frame` is of the function that calls it (__builtin_dwarf_cfa), `caller`
/// where the host's call returns to; null where it is none that may be tried again.
class MEM_FORWARDED_CALL {
 public:
  MEM_FORWARDED_CALL(void const* frame, void const* caller, void const* released)
      : m_frame(frame), m_caller(caller), m_is_outermost(!mem_calls.has_part(frame, caller)) {
    if (m_is_outermost) begin();
    if (released != nullptr) mem_calls.released = released;
  }
  MEM_FORWARDED_CALL(const MEM_FORWARDED_CALL&) = delete;
  MEM_FORWARDED_CALL& operator=(const MEM_FORWARDED_CALL&) = delete;
  /// Also behind an exception.
  ~MEM_FORWARDED_CALL() {
    if (m_is_outermost) leave(nullptr);
  }

  bool is_outermost() const { return m_is_outermost; }

  /// The call has given `block`, or null. Whether the hooks are to be told of it by the caller, who
  /// is the outermost: it is the allocator's own, or one that an inner call got from it.
  bool gives(void const* block, std::size_t requested, bool is_the_allocators) {
    if (m_is_outermost) return leave(block) || (block != nullptr && is_the_allocators);
    if (block == nullptr) mem_calls.failed = m_caller;
    if (block != nullptr && (is_the_allocators || block == mem_calls.given)) keep(block, requested);
    return false;
  }

 private:
  // One that has failed goes on behind this one, if it was not left.
  void begin() {
    if (!mem_calls.is_left_from(m_frame)) [[unlikely]]
      m_former = mem_calls;
    mem_calls = {.outermost = m_frame};
  }
  // Whether `block` is what an inner call was given. Once; and not where this call was taken for
  // one that had been left, since it stands on a stack of its own.
  bool leave(void const* block) {
    if (mem_calls.outermost != m_frame) return false;
    const MEM_CALLS_OF_THREAD mine = std::exchange(mem_calls, m_former);
    if (mine.given != nullptr && mine.given != block) tell_of_another(mine.given, mine.requested);
    return mine.given != nullptr && mine.given == block;
  }
  static void tell_of_another(void const* block, std::size_t requested);
  static void keep(void const* block, std::size_t requested);

  void const* const m_frame;
  void const* const m_caller;
  const bool m_is_outermost;
  MEM_CALLS_OF_THREAD m_former;
};
