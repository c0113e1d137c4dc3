// From the stack of an allocation to its site, frame by frame.
#pragma once

#include <span>

#include "include/tuk_mem.h"
#include "mem/base/part.h"
#include "mem/settings/tuning.h"
#include "mem/unwind/stack_walk.h"

/// Eleven frames are looked at first, and fifty more where all of those are looked through.
inline constexpr int mem_short_trace_depth = 11;
inline constexpr int mem_deep_trace_depth = 50;

/// Some frames of a stack, innermost first.
struct MEM_FRAMES {
  void const** addresses;
  int count;
  bool are_last;                        ///< no more of the stack is looked at
  class MEM_SITE_WALK* walk = nullptr;  ///< that they come from, if they do
};

/// A stack by the library's own walk: one frame at a time, and only what is not known to be looked
/// through. Where most of a program is, as in one without debug information, the walk is all that
/// an allocation costs.
class MEM_SITE_WALK {
 public:
  /// Begins at the caller of a function that stands where a capture would be called: the capture's
  /// own frame and that function's are the first of those that are ignored.
  explicit MEM_SITE_WALK(const MEM_UNWIND_FRAME& caller)
      : m_cursor(caller, MEM_STACK_TRACE_IGNORE_DEPTH - 2) {}

  MEM_FRAMES next() {
    m_frame = m_cursor.next(m_frames_left);
    return {&m_frame, m_frame == nullptr ? 0 : 1, m_frame == nullptr, this};
  }

  /// Stores the frames behind the present one, without going there, and returns how many.
  int look_ahead(std::span<void const*> frames) const;
  /// Whether a symbolizer was asked about one of its frames.
  bool has_asked() const { return m_has_asked; }
  void note_asked() { m_has_asked = true; }

 private:
  MEM_STACK_CURSOR m_cursor;
  int m_frames_left = mem_short_trace_depth + mem_deep_trace_depth;
  void const* m_frame = nullptr;
  bool m_has_asked = false;
};

/// A stack by any unwinder's captures, whose arguments these are.
struct MEM_CAPTURES {
  void const* frames[mem_deep_trace_depth];
  int wanted = mem_short_trace_depth;
  int skip = MEM_STACK_TRACE_IGNORE_DEPTH;

  /// What was captured; from now on the next ones are wanted.
  MEM_FRAMES captured(int count) {
    const bool are_last = count < wanted || wanted == mem_deep_trace_depth;
    skip += wanted;
    wanted = mem_deep_trace_depth;
    return {frames, count, are_last};
  }
};

/// The site that frames lead to; the catch-all where the last ones are looked through, null where
/// more of them are wanted, or where tracking has ended. Inside the tracker's lock as a mouse,
/// which steps out for unknown addresses.
MEM_ADDRESS_TRACKER* mem_site_of(const MEM_FRAMES& frames);

/// What the walks remember of the verdicts: no longer than there are records of them.
extern const MEM_PART mem_looked_through_part;
