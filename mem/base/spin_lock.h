// The library's spin locks: ready at load, with their place in the order of all locks.
#pragma once

#include <oneapi/tbb/spin_mutex.h>

#include "mem/base/lock_order.h"

/// Storage of a spin mutex, unlocked before any constructor of the process has run. oneTBB's own
/// constructor is no constant expression: left to itself it would run at some moment of static
/// initialisation, possibly under a hook that holds the mutex on another thread.
union MEM_STATIC_SPIN_MUTEX {
  unsigned char unlocked;
  tbb::spin_mutex mutex;

  constexpr MEM_STATIC_SPIN_MUTEX() : unlocked(0) {}
};

/// One byte; take it by a std::lock_guard or std::unique_lock.
template <MEM_LOCK_ORDER PLACE>
class MEM_SPIN_LOCK {
 public:
  constexpr MEM_SPIN_LOCK() = default;
  MEM_SPIN_LOCK(const MEM_SPIN_LOCK&) = delete;
  MEM_SPIN_LOCK& operator=(const MEM_SPIN_LOCK&) = delete;

  void lock() {
    mem_note_lock_taken(PLACE);
    m_storage.mutex.lock();
  }
  void unlock() {
    m_storage.mutex.unlock();
    mem_note_lock_released(PLACE);
  }
  /// Whether a thread holds it: in a child made by fork, which may be gone.
  bool is_taken() const { return m_storage.unlocked != 0; }
  /// Unlocks it in a child made by fork, where its holder may be gone.
  void abandon() { m_storage.unlocked = 0; }

 private:
  MEM_STATIC_SPIN_MUTEX m_storage;
};

/// A mutex that may be held for longer, with its place.
template <MEM_LOCK_ORDER PLACE, class MUTEX>
class MEM_ORDERED : public MUTEX {
 public:
  void lock() {
    mem_note_lock_taken(PLACE);
    MUTEX::lock();
  }
  void unlock() {
    MUTEX::unlock();
    mem_note_lock_released(PLACE);
  }
};
