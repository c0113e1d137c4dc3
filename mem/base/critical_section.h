// The recursive lock of start-up, teardown, internal errors and the out-of-memory path.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

/// Between initialize() and destroy() a recursive mutex; outside that span it only counts its
/// holds, so that code which runs before start-up or after teardown still balances them.
///
/// Any thread at any moment. A hold is given back as it was taken: who waits for the mutex when
/// another thread destroys it still gets it, and gives it on.
class MEM_CRITICAL_SECTION {
 public:
  /// Forgets holds that were only counted.
  void initialize();
  void destroy();
  void lock();
  /// Nothing when there is no hold.
  void unlock();
  /// Drops every hold, also those counted while the mutex did not exist; of the mutex, those of the
  /// calling thread. Only on the way to the end of the process.
  void unlock_all();
  /// In a child made by fork: no hold, and a fresh mutex. The thread that held it is gone.
  void start_anew_in_child();
  /// Holds outstanding, of all threads.
  std::uint32_t lock_count() const { return m_lock_count; }

 private:
  bool is_mine() const { return m_owner.load(std::memory_order_relaxed) == pthread_self(); }
  void take_mutex();
  void give_mutex();

  static constexpr pthread_t nobody = 0;

  // Never destroyed, whatever destroy() says: a thread may be on its way into it.
  pthread_mutex_t m_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
  std::atomic<bool> m_initialised = false;
  std::atomic<std::uint32_t> m_lock_count = 0;
  std::atomic<pthread_t> m_owner = nobody;  // of the mutex
  std::uint32_t m_owners_holds = 0;         // of the mutex, written by its owner
};

/// Lives from load to the end of the process; its mutex from start-up to the last teardown.
extern MEM_CRITICAL_SECTION mem_critical_section;

/// One hold of mem_critical_section for a scope.
class MEM_CRITICAL_SECTION_GUARD {
 public:
  MEM_CRITICAL_SECTION_GUARD() { mem_critical_section.lock(); }
  MEM_CRITICAL_SECTION_GUARD(const MEM_CRITICAL_SECTION_GUARD&) = delete;
  MEM_CRITICAL_SECTION_GUARD& operator=(const MEM_CRITICAL_SECTION_GUARD&) = delete;
  ~MEM_CRITICAL_SECTION_GUARD() { mem_critical_section.unlock(); }
};
