#include "mem/unwind/whole_stack.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "mem/unwind/frame_layout.h"

namespace {

// The site of an allocation is looked for among so many frames.
constexpr int most_looked_through = 61;

// A digest is a polynomial of the addresses, so that of a stretch is a difference of two.
constexpr std::uint64_t base = 0x9E3779B97F4A7C15ULL;
constexpr auto powers = [] {
  std::array<std::uint64_t, MEM_WHOLE_STACK::most_frames + 1> values{1};
  for (std::size_t power = 1; power < values.size(); ++power)
    values[power] = values[power - 1] * base;
  return values;
}();

std::uint64_t spread(std::uintptr_t address) {
  const std::uint64_t spread = address * 0xD6E8FEB86659FD93ULL;
  return spread ^ (spread >> 32);
}

}  // namespace

int MEM_WHOLE_STACK::frames_that_hold(std::uintptr_t stack_pointer) const {
  int frame = 0;
  while (frame < m_remembered && m_frames[frame].holds(stack_pointer)) ++frame;
  return frame;
}

// As far as wanted, or to a frame that is known, which `known` tells then. Before, it tells of how
// many frames all that lies outward holds.
MEM_WHOLE_STACK::END MEM_WHOLE_STACK::step(MEM_WALK walk, int& known, int limit, int wanted) {
  known = std::min(known, m_remembered - 1);
  bool looks_through = wanted > 0;
  m_is_plain = true;
  m_stepped = 0;
  for (;;) {
    while (known >= 0 && m_frames[known].stack_pointer < walk.stack_pointer) --known;
    if (known >= 0 && m_frames[known].is_where(walk)) return END::KNOWN_FRAME;
    const MEM_UNWIND_RULE rule = walk.rule();
    m_steps[m_stepped++] = {walk, rule};
    if (looks_through && m_stepped > m_skip &&
        (!rule.is_looked_through() || walk.is_interrupted())) {
      looks_through = false;
      limit = std::min(most_frames, m_stepped - 1 + wanted + frames_to_spare);
    }
    if (m_stepped == limit) return END::CUT;
    const MEM_LEFT left = walk.leave(rule);
    if (left == MEM_LEFT::NOT || walk.return_address == 0) {
      m_is_plain = m_is_plain && left == MEM_LEFT::NOT && ends_always();
      return END::OUTERMOST;
    }
    if (left == MEM_LEFT::CAREFULLY) {
      m_is_plain = false;
      known = -1;
    }
  }
}

// Whether the last step has no next one, whatever is on the stack.
bool MEM_WHOLE_STACK::ends_always() const {
  const STEP& last = m_steps[m_stepped - 1];
  return last.rule.kind() == MEM_UNWIND_RULE::OUTERMOST ||
         !MEM_FRAME_LAYOUT::at(last.walk.behind_call - 1);
}

void MEM_WHOLE_STACK::push(const STEP& step, bool is_end) {
  const std::uintptr_t saved = step.rule.frame_pointer_offset();
  bool depends = step.rule.kind() == MEM_UNWIND_RULE::FROM_FRAME_POINTER;
  if (m_count == 0) {
    depends = depends || !is_end;
  } else {
    FRAME& outer = m_frames[m_count - 1];
    depends = depends || (saved == 0 && outer.depends_on_frame_pointer);
    outer.check = saved != 0 && outer.depends_on_frame_pointer
                      ? CHECK{outer.stack_pointer - saved, outer.frame_pointer}
                      : outer.return_address();
  }
  push_address(step.walk.behind_call);
  FRAME& frame = m_frames[m_count - 1];
  frame.stack_pointer = step.walk.stack_pointer;
  frame.frame_pointer = step.walk.frame_pointer;
  frame.is_interrupted = step.walk.is_interrupted();
  frame.is_looked_through = step.rule.is_looked_through() && !frame.is_interrupted;
  frame.depends_on_frame_pointer = depends;
  frame.check = frame.return_address();
}

void MEM_WHOLE_STACK::push_address(std::uintptr_t address) {
  FRAME& frame = m_frames[m_count];
  frame.address = address;
  frame.digest = (m_count == 0 ? 0 : m_frames[m_count - 1].digest * base) + spread(address);
  frame.note = 0;
  frame.is_interrupted = frame.is_looked_through = false;
  ++m_count;
}

// What was stepped goes on top of what is known.
void MEM_WHOLE_STACK::rebuild(int known, END end) {
  m_count = end == END::KNOWN_FRAME ? known + 1 : 0;
  m_unchanged = m_count;
  if (end != END::KNOWN_FRAME) m_is_cut = end == END::CUT;
  for (int step = m_stepped - 1; step >= 0; --step) push(m_steps[step], end == END::OUTERMOST);
}

void MEM_WHOLE_STACK::walk(const MEM_UNWIND_FRAME& first, int skip, int wanted, int at_least) {
  const MEM_WALK walk = MEM_WALK::from(first);
  const unsigned generation = mem_unwind_rules.generation();
  const bool is_own = walk.stack_end == mem_own_stack.high;
  if (!is_own || at_least != 0 || m_stack_end != walk.stack_end || m_generation != generation)
    m_remembered = 0;
  m_skip = std::min(skip, most_frames / 2);
  const int limit = std::min(
      most_frames, m_skip + std::max({at_least, wanted, most_looked_through}) + frames_to_spare);
  if (at_least != 0) wanted = 0;
  int known = frames_that_hold(walk.stack_pointer);
  END end = step(walk, known, limit, wanted);
  if (end == END::KNOWN_FRAME && known + 1 + m_stepped > most_frames) {
    m_remembered = 0;
    end = step(walk, known, limit, wanted);
  }
  const int remembered = std::exchange(m_remembered, 0);
  std::atomic_signal_fence(std::memory_order_seq_cst);
  m_unchanged = remembered;
  if (m_stepped != 0 || known + 1 != remembered) rebuild(known, end);
  m_stack_end = walk.stack_end;
  m_generation = generation;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  if (is_own && m_is_plain) m_remembered = m_count;
}

void MEM_WHOLE_STACK::take_capture(int count) {
  m_count = m_skip = m_unchanged = m_remembered = 0;
  m_is_cut = false;
  for (int frame = count - 1; frame >= 0; --frame)
    push_address(reinterpret_cast<std::uintptr_t>(m_captured[frame]));
}

bool MEM_WHOLE_STACK::is_looked_through(int frame) {
  FRAME& known = m_frames[frame];
  if (!known.is_looked_through && !known.is_interrupted)
    known.is_looked_through = mem_unwind_rules.at(known.address).is_looked_through();
  return known.is_looked_through;
}

std::uint64_t MEM_WHOLE_STACK::digest(int outermost, int innermost) const {
  const std::uint64_t digest = m_frames[innermost].digest;
  if (outermost == 0) return digest;
  return digest - m_frames[outermost - 1].digest * powers[innermost - outermost + 1];
}
