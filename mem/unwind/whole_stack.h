// A thread's whole stack, walked again and again.
#pragma once

#include <array>
#include <cstdint>

#include "mem/unwind/cfi_expression.h"
#include "mem/unwind/walk_step.h"

/// The frames of the last walk, and what a new walk need not do again. Where it comes to a frame
/// with the same return address, stack pointer and, if anything outward depends on it, frame
/// pointer, the same rules lead outward, through the same words of the stack: it is enough that
/// these still hold what they did, which is a load or two a frame. That goes for a thread's own
/// stack, whose words from the stack pointer to its end may always be read, and for frames that
/// were left plainly; otherwise every walk is a whole one.
///
/// Frames are numbered from the outermost one, 0, inward. Of one thread at a time; a walk that is
/// broken off, by the end of its thread for instance, leaves nothing behind that is believed later.
/// About 40 KB; memory that was not written is no part of its state.
class MEM_WHOLE_STACK {
 public:
  static constexpr int most_frames = 384;
  /// So many frames more than wanted are walked where a stack goes on, so that a few returns don't
  /// make the next walk a whole one.
  static constexpr int frames_to_spare = 32;

  /// A word of the stack that leads outward.
  struct CHECK {
    std::uintptr_t slot;
    std::uintptr_t value;

    bool holds() const { return mem_load_word(slot) == value; }
  };

  MEM_WHOLE_STACK() : m_count(0) {}

  /// Walks from `first` outward; it and the next ones, `skip` together, are not of interest. At
  /// least so many frames of interest are walked, or, where that is 0, `wanted` ones from the first
  /// one that is not noted as looked through, if there are so many.
  void walk(const MEM_UNWIND_FRAME& first, int skip, int wanted, int at_least);

  /// The place for a capture of another unwinder, innermost first, and its taking over.
  void const** capture_buffer() { return m_captured.data(); }
  void take_capture(int count);

  int count() const { return m_count; }
  /// The innermost frame of interest; below 0 when there is none.
  int innermost() const { return m_count - 1 - m_skip; }
  /// Whether there are frames outward of frame 0.
  bool is_cut() const { return m_is_cut; }
  /// So many outermost frames are those of the walk before.
  int unchanged() const { return m_unchanged; }

  void const* return_address(int frame) const {
    return reinterpret_cast<void const*>(m_frames[frame].address - m_frames[frame].is_interrupted);
  }
  /// The return address; where the frame was interrupted, one more. Tells where it is by its lower
  /// neighbour, which lies in the call or is the interrupted instruction.
  std::uintptr_t behind_call(int frame) const { return m_frames[frame].address; }
  /// Whether the frame is noted to be looked through.
  bool is_looked_through(int frame);

  /// What the caller has noted of the stack from the outermost frame to this one; 0 when nothing:
  /// it is forgotten when one of them changes.
  std::uint32_t& note(int frame) { return m_frames[frame].note; }

  /// Whether the stack is the same whenever the innermost frame's return address and stack pointer
  /// are, with the frame pointer if that is needed, all `checks` hold, and neither the rules'
  /// generation nor the end of the thread's own stack is another.
  bool is_told_by_checks() const { return m_remembered > 0; }
  bool needs_frame_pointer() const { return m_frames[m_count - 1].depends_on_frame_pointer; }
  std::uintptr_t frame_pointer() const { return m_frames[m_count - 1].frame_pointer; }
  unsigned generation() const { return m_generation; }
  std::uintptr_t stack_end() const { return m_stack_end; }
  template <class VISIT>
  void for_each_check(VISIT visit) const {
    for (int frame = m_count - 2; frame >= 0; --frame) {
      const FRAME& known = m_frames[static_cast<std::size_t>(frame)];
      visit(known.return_address());
      if (known.check.slot != known.return_address().slot) visit(known.check);
    }
  }

  std::uintptr_t stack_pointer(int frame) const { return m_frames[frame].stack_pointer; }

  /// A digest of the behind_call of a stretch of frames, in a moment.
  std::uint64_t digest(int outermost, int innermost) const;

 private:
  struct FRAME {
    std::uintptr_t address;
    std::uintptr_t stack_pointer;  // the return address stands below it
    std::uintptr_t frame_pointer;
    // Another word that has to hold: where this frame's frame pointer was saved, if anything
    // outward depends on it, else the return address again.
    CHECK check;
    std::uint64_t digest;  // of all frames from the outermost one to this
    std::uint32_t note;
    bool is_interrupted;
    bool is_looked_through;
    bool depends_on_frame_pointer;

    // What lies below the thread's stack pointer is not looked at.
    bool holds(std::uintptr_t own_stack_pointer) const {
      return stack_pointer > own_stack_pointer && mem_load_word(stack_pointer - 8) == address &&
             check.slot >= own_stack_pointer && check.holds();
    }
    bool is_where(const MEM_WALK& walk) const {
      return stack_pointer == walk.stack_pointer && address == walk.behind_call &&
             (!depends_on_frame_pointer || frame_pointer == walk.frame_pointer);
    }
    CHECK return_address() const { return {stack_pointer - 8, address}; }
  };
  struct STEP {
    MEM_WALK walk;
    MEM_UNWIND_RULE rule{0};
  };
  enum class END : unsigned char { KNOWN_FRAME, CUT, OUTERMOST };

  int frames_that_hold(std::uintptr_t stack_pointer) const;
  END step(MEM_WALK walk, int& known, int limit, int wanted);
  bool ends_always() const;
  void rebuild(int known, END end);
  void push(const STEP& step, bool is_end);
  void push_address(std::uintptr_t address);

  int m_count;
  int m_skip = 0;
  int m_unchanged = 0;
  int m_stepped = 0;
  int m_remembered = 0;  // so many frames may be known to the next walk: m_count or 0
  bool m_is_cut = false;
  bool m_is_plain = false;  // the last steps depend on nothing but what is checked
  std::uintptr_t m_stack_end = 0;
  unsigned m_generation = 0;  // of the rules
  std::array<FRAME, most_frames> m_frames;
  std::array<STEP, most_frames> m_steps;
  std::array<void const*, most_frames> m_captured;
};
