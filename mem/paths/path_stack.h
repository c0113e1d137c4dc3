// The stack that a thread's allocations come from, with the path that it was last.
#pragma once

#include "mem/paths/call_paths.h"
#include "mem/paths/known_stacks.h"
#include "mem/state/thread_line.h"
#include "mem/unwind/whole_stack.h"

/// A whole stack, walked outside the tracker's lock, and what was found of it inside.
class MEM_PATH_STACK {
 public:
  /// Without `known` stacks every one is walked.
  explicit MEM_PATH_STACK(MEM_KNOWN_STACKS* known) : m_known(known) {}

  /// As the stack's own, of which `first` and the next ones, `skip` together, are not of interest;
  /// no frames where the stack is known to be that of a path. A second walk of the same stack is
  /// for more frames.
  void walk(const MEM_UNWIND_FRAME& first, int skip, std::uint32_t bin);
  void const** capture_buffer() { return m_frames.capture_buffer(); }
  void take_capture(int count);

  MEM_WHOLE_STACK& frames() { return m_frames; }

  /// The path of the stack as it was found last, if it is the same still; else null. As a mouse,
  /// like the next ones.
  MEM_CALL_PATH* same_path(std::uint32_t bin);
  /// The path of the stack by which its frame of this number, or the catch-all, is the site. May it
  /// be taken for the `same_path` later?
  MEM_CALL_PATH* find_path(int site_frame, MEM_ADDRESS_TRACKER& site, std::uint32_t bin,
                           bool for_good);
  /// Whether the stack was not walked since it is known, but not for this epoch. It will be.
  bool is_to_be_walked();
  /// Whether another walk is needed, since the stack goes on beyond what has been walked of a path
  /// that begins at this frame. That one walks enough.
  bool has_more_of(int site_frame);

 private:
  bool is_path_of_stack();
  void make_known(std::uint32_t bin);
  void take_notes_of(int outermost);

  MEM_WHOLE_STACK m_frames;
  MEM_KNOWN_STACKS* m_known;
  MEM_CALL_PATH* m_known_path = nullptr;
  std::uint32_t m_known_epoch = 0;
  bool m_wants_walk = false;
  int m_skip = 0;
  int m_at_least = 0;            // so many frames the next walk is to have
  bool m_walked_enough = false;  // the last one was for as many as were wanted
  MEM_CALL_PATH* m_path = nullptr;
  int m_path_frame = 0;
  std::uint32_t m_path_bin = 0;
  std::uint32_t m_epoch = 0;  // of the path and the notes
  int m_outermost = 0;        // of the notes
};

/// The calling thread's, for an event. A thread that has no line of its own gets a new one each
/// time. They stay for the life of the process: threads may be walking whenever the tracker ends.
class MEM_OWN_PATH_STACK {
 public:
  MEM_OWN_PATH_STACK();
  MEM_OWN_PATH_STACK(const MEM_OWN_PATH_STACK&) = delete;
  MEM_OWN_PATH_STACK& operator=(const MEM_OWN_PATH_STACK&) = delete;
  ~MEM_OWN_PATH_STACK();

  /// Not for want of memory.
  explicit operator bool() const { return m_stack != nullptr; }
  MEM_PATH_STACK& operator*() const { return *m_stack; }
  MEM_PATH_STACK* operator->() const { return m_stack; }

 private:
  MEM_PATH_STACK* m_stack = nullptr;
  bool m_is_for_now = false;
};

/// Nothing but a forked child's letting go of them.
extern const MEM_PART mem_path_stacks_part;
