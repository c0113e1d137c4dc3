#include "mem/state/shared_total.h"

#include <algorithm>
#include <mutex>

#include "mem/base/lifecycle.h"

namespace {

// So little of what is left in front of the limit may be one thread's: others come too.
constexpr std::int64_t part_to_take = 8;
constexpr std::int64_t part_to_keep = 4;

}  // namespace

MEM_SHARED_TOTAL::operator std::int64_t() const {
  const std::lock_guard no_claims(m_lock);  // a room of which half was seen would be far off
  return claimed() - left_in_all();
}

std::int64_t MEM_SHARED_TOTAL::left_in_all() const {
  std::int64_t left = 0;
  for (const MEM_THREAD_LINE& line : mem_used_thread_lines()) left += left_in(line);
  return left;
}

[[gnu::noinline]] void MEM_SHARED_TOTAL::add(MEM_THREAD_LINE& line, std::int64_t amount,
                                             std::int64_t limit, std::int64_t least) {
  const std::lock_guard changing(m_lock);
  claim(line, amount, limit, least);
}

void MEM_SHARED_TOTAL::claim(MEM_THREAD_LINE& line, std::int64_t amount, std::int64_t limit,
                             std::int64_t least) {
  const std::int64_t spare = limit - (claimed() + amount);
  const std::int64_t room = spare / part_to_take;
  const bool takes_room = room >= least && !mem_is_shared(line);
  m_most_room.store(takes_room ? spare / part_to_keep : 0, std::memory_order_relaxed);
  m_claimed.store(claimed() + amount + (takes_room ? room : 0), std::memory_order_relaxed);
  if (!takes_room) return;
  m_rooms_are_out = true;
  (line.*m_room).store(left_in(line) + room, std::memory_order_relaxed);
}

// Half of what it may keep stays, for what comes next.
[[gnu::noinline]] void MEM_SHARED_TOTAL::give_back(MEM_THREAD_LINE& line, std::int64_t room) {
  const std::lock_guard changing(m_lock);
  const std::int64_t kept = mem_is_shared(line) ? 0 : std::min(room, m_most_room / 2);
  if (kept != 0) m_rooms_are_out = true;
  m_claimed.store(claimed() - (room - kept), std::memory_order_relaxed);
  (line.*m_room).store(kept, std::memory_order_relaxed);
}

void MEM_SHARED_TOTAL::settle() {
  const std::lock_guard changing(m_lock);
  set(claimed() - left_in_all());
}

void MEM_SHARED_TOTAL::set(std::int64_t sum) {
  for (MEM_THREAD_LINE& line : mem_used_thread_lines())
    (line.*m_room).store(0, std::memory_order_relaxed);
  m_most_room = 0;
  m_claimed = sum;
  m_rooms_are_out = false;
}

void MEM_SHARED_TOTAL::abandon() {
  m_lock.abandon();
  if (!mem_forked_inside) set(*this);
}
