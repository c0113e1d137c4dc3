#include "mem/paths/path_stack.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <utility>

#include "mem/settings/call_path_settings.h"

namespace {

constinit std::array<std::atomic<MEM_PATH_STACK*>, 1 + mem_most_own_lines> stacks{};

// A thread's own, with the stacks that it knows.
struct OWN_STACK {
  MEM_KNOWN_STACKS known;
  MEM_PATH_STACK stack{&known};
};

template <class STACK, class... ARGUMENTS>
STACK* make(ARGUMENTS... arguments) try {
  return new (MEM_BOOKKEEPING_ALLOCATOR<STACK>().allocate(1)) STACK{arguments...};
} catch (const std::bad_alloc&) {
  return nullptr;
}

std::uint32_t bin_of(MEM_ADDRESS_TRACKER& site, std::uint32_t bin) {
  return bin | (site.address_info.address == nullptr ? MEM_CALL_PATH::is_of_catch_all : 0);
}

}  // namespace

void MEM_PATH_STACK::walk(const MEM_UNWIND_FRAME& first, int skip, std::uint32_t bin) {
  m_skip = skip;
  m_known_path = nullptr;
  m_known_epoch = mem_call_paths_epoch.load(std::memory_order_relaxed);
  if (m_known != nullptr && m_at_least == 0 && !std::exchange(m_wants_walk, false))
    m_known_path = m_known->find(first, bin, m_known_epoch);
  if (m_known_path != nullptr) return;
  m_walked_enough = m_at_least != 0;
  m_frames.walk(first, skip, mem_call_path_depth, std::exchange(m_at_least, 0));
  if (m_frames.unchanged() <= m_path_frame) m_path = nullptr;
}

void MEM_PATH_STACK::take_capture(int count) {
  m_frames.take_capture(count);
  m_walked_enough = true;
  m_path = nullptr;
}

// Further in than the path's own frames, nothing is new but what is looked through.
bool MEM_PATH_STACK::is_path_of_stack() {
  if (m_frames.unchanged() == m_frames.count()) [[likely]]
    return true;
  for (int frame = m_frames.innermost(); frame > m_path_frame; --frame)
    if (!m_frames.is_looked_through(frame)) return false;
  return m_frames.innermost() >= m_path_frame;
}

MEM_CALL_PATH* MEM_PATH_STACK::same_path(std::uint32_t bin) {
  const std::uint32_t epoch = mem_call_paths_epoch.load(std::memory_order_relaxed);
  if (m_known_path != nullptr) return m_known_epoch == epoch ? m_known_path : nullptr;
  if (m_path == nullptr || m_path_bin != bin || m_epoch != epoch || !is_path_of_stack())
    return nullptr;
  make_known(bin);
  return m_path;
}

bool MEM_PATH_STACK::is_to_be_walked() {
  m_wants_walk = m_known_path != nullptr;
  return m_wants_walk;
}

void MEM_PATH_STACK::make_known(std::uint32_t bin) {
  if (m_known != nullptr) m_known->remember(m_frames, m_skip, m_path, bin, m_epoch);
}

// What was noted of other paths, or of the same frames in paths that begin further in or out, is
// nothing to go by.
void MEM_PATH_STACK::take_notes_of(int outermost) {
  const std::uint32_t epoch = mem_call_paths_epoch.load(std::memory_order_relaxed);
  if (m_epoch == epoch && m_outermost == outermost) return;
  for (int frame = 0; frame < m_frames.count(); ++frame) m_frames.note(frame) = 0;
  m_epoch = epoch;
  m_outermost = outermost;
}

MEM_CALL_PATH* MEM_PATH_STACK::find_path(int site_frame, MEM_ADDRESS_TRACKER& site,
                                         std::uint32_t bin, bool for_good) {
  const int outermost = std::max(0, site_frame + 1 - mem_call_path_depth);
  m_path = nullptr;
  take_notes_of(outermost);
  MEM_CALL_PATH* const path =
      mem_call_path_of({m_frames, outermost, site_frame, site, bin_of(site, bin)});
  if (for_good) {
    m_path = path;
    m_path_frame = site_frame;
    m_path_bin = bin;
    if (path != nullptr) make_known(bin);
  }
  return path;
}

bool MEM_PATH_STACK::has_more_of(int site_frame) {
  if (m_walked_enough || !m_frames.is_cut() || site_frame + 1 >= mem_call_path_depth) return false;
  m_at_least = m_frames.innermost() - site_frame + mem_call_path_depth;
  return true;
}

MEM_OWN_PATH_STACK::MEM_OWN_PATH_STACK() {
  const MEM_THREAD_LINE& line = mem_thread_line();
  m_is_for_now = mem_is_shared(line);
  std::atomic<MEM_PATH_STACK*>& own =
      stacks[static_cast<std::size_t>(&line - mem_thread_lines.data())];
  m_stack = m_is_for_now ? nullptr : own.load(std::memory_order_relaxed);
  if (m_stack != nullptr) [[likely]]
    return;
  if (m_is_for_now) {
    m_stack = make<MEM_PATH_STACK>(static_cast<MEM_KNOWN_STACKS*>(nullptr));
  } else if (OWN_STACK* const made = make<OWN_STACK>()) {
    m_stack = &made->stack;
    own = m_stack;
  }
}

MEM_OWN_PATH_STACK::~MEM_OWN_PATH_STACK() {
  if (m_is_for_now && m_stack != nullptr)
    MEM_BOOKKEEPING_ALLOCATOR<MEM_PATH_STACK>().deallocate(m_stack, 1);
}

constinit const MEM_PART mem_path_stacks_part(
    MEM_CREATE{mem_nothing},  // a thread's first path makes its own
    MEM_RESET{mem_nothing},   // they go by the epoch of the paths
    MEM_FREE{mem_nothing},    // threads may be walking
    MEM_ABANDON{[] {
      for (auto& stack : stacks) stack = nullptr;
    }});
