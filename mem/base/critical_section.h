// The recursive lock of start-up, teardown, internal errors and the out-of-memory path.
#pragma once

#include <pthread.h>

#include <cstdint>

/// Between initialize() and destroy() a recursive mutex; outside that span it only counts its
/// holds, so that code which runs before start-up or after teardown still balances them.
class MEM_CRITICAL_SECTION {
 public:
  void initialize();
  void destroy();
  void lock();
  /// Nothing when there is no hold.
  void unlock();
  /// Drops every hold, also those counted while the mutex did not exist. Only on the way to the
  /// end of the process.
  void unlock_all();
  /// In a child made by fork: no hold, and a fresh mutex where there was one. The thread that held
  /// it is gone.
  void start_anew_in_child();

 private:
  pthread_mutex_t m_mutex{};
  bool m_initialised = false;
  std::uint32_t m_lock_count = 0;
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
