// A sum that every event changes, though threads hardly ever write the same line for it.
#pragma once

#include <atomic>
#include <cstdint>

#include "mem/base/spin_lock.h"
#include "mem/state/thread_line.h"

/// A thread claims room in the sum ahead of time, in its own line, and then uses it up and gives it
/// back by itself. The sum is what has been claimed less the rooms that are left: so it is never
/// above what has been claimed, and as long as that stays below a limit, no thread need look
/// whether the limit has been reached. Rooms are handed out only in front of the limit, and are
/// small close to it; who finds none changes what has been claimed, under the lock, with everybody
/// else.
class alignas(64) MEM_SHARED_TOTAL {
 public:
  using ROOM = std::atomic<std::int64_t> MEM_THREAD_LINE::*;

  constexpr explicit MEM_SHARED_TOTAL(ROOM room) : m_room(room) {}

  /// The sum: exact inside as the cat, and where the threads that change it take turns; else that
  /// of a moment while it was asked for, give or take the events since. As a mouse.
  operator std::int64_t() const;  // NOLINT(google-explicit-constructor): it stands for a number

  /// At least the sum.
  std::int64_t claimed() const { return m_claimed.load(std::memory_order_relaxed); }

  /// Adds an amount that there is room for; false when there is none. As a mouse.
  bool add_in_room(MEM_THREAD_LINE& line, std::int64_t amount) {
    const std::int64_t room = left_in(line);
    if (room < amount) [[unlikely]]
      return false;
    (line.*m_room).store(room - amount, std::memory_order_relaxed);
    return true;
  }

  /// Adds an amount, and takes room up to the limit, unless the sum is close to it or `least` is
  /// more than there would be. As a mouse.
  void add(MEM_THREAD_LINE& line, std::int64_t amount, std::int64_t limit, std::int64_t least);

  /// Subtracts an amount. As a mouse.
  void subtract(MEM_THREAD_LINE& line, std::int64_t amount) {
    const std::int64_t room = left_in(line) + amount;
    if (room > m_most_room.load(std::memory_order_relaxed) || mem_is_shared(line)) [[unlikely]]
      return give_back(line, room);
    (line.*m_room).store(room, std::memory_order_relaxed);
  }

  /// Takes all rooms back: what has been claimed is the sum then. Inside as the cat.
  void settle();

  /// Inside as the cat, or before anything is counted.
  void set(std::int64_t sum);

  /// Whether anybody may have room: the sum is below what has been claimed then. Under the lock.
  bool rooms_are_out() const { return m_rooms_are_out; }

  using LOCK = MEM_SPIN_LOCK<MEM_LOCK_ORDER::TOTALS>;
  /// Changes of what has been claimed.
  LOCK& lock() { return m_lock; }
  /// What `add` does, under the lock.
  void claim(MEM_THREAD_LINE& line, std::int64_t amount, std::int64_t limit, std::int64_t least);

  /// In a child made by fork.
  void abandon();

 private:
  std::int64_t left_in(const MEM_THREAD_LINE& line) const {
    return (line.*m_room).load(std::memory_order_relaxed);
  }
  void give_back(MEM_THREAD_LINE& line, std::int64_t room);
  std::int64_t left_in_all() const;

  ROOM m_room;
  std::atomic<std::int64_t> m_claimed{0};
  std::atomic<std::int64_t> m_most_room{0};  // a thread keeps no more of what it gives back
  bool m_rooms_are_out = false;
  mutable LOCK m_lock;
};
