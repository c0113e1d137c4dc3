#include "mem/base/critical_section.h"

constinit MEM_CRITICAL_SECTION mem_critical_section;

void MEM_CRITICAL_SECTION::initialize() {
  if (m_initialised) return;
  m_lock_count = 0;
  m_initialised = true;
}

void MEM_CRITICAL_SECTION::destroy() { m_initialised = false; }

void MEM_CRITICAL_SECTION::start_anew_in_child() {
  m_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
  m_owner = nobody;
  m_owners_holds = 0;
  m_lock_count = 0;
}

void MEM_CRITICAL_SECTION::take_mutex() {
  pthread_mutex_lock(&m_mutex);
  m_owner.store(pthread_self(), std::memory_order_relaxed);
  ++m_owners_holds;
}

void MEM_CRITICAL_SECTION::give_mutex() {
  if (--m_owners_holds == 0) m_owner.store(nobody, std::memory_order_relaxed);
  pthread_mutex_unlock(&m_mutex);
}

void MEM_CRITICAL_SECTION::lock() {
  if (m_initialised || is_mine()) take_mutex();
  ++m_lock_count;
}

void MEM_CRITICAL_SECTION::unlock() {
  std::uint32_t count = m_lock_count;
  while (count != 0 && !m_lock_count.compare_exchange_weak(count, count - 1)) {
  }
  if (is_mine()) give_mutex();
}

void MEM_CRITICAL_SECTION::unlock_all() {
  m_lock_count = 0;
  while (is_mine()) give_mutex();
}
