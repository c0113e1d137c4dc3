#include "mem/base/critical_section.h"

constinit MEM_CRITICAL_SECTION mem_critical_section;

void MEM_CRITICAL_SECTION::initialize() {
  if (m_initialised) return;
  m_initialised = true;
  m_lock_count = 0;
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&m_mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

void MEM_CRITICAL_SECTION::start_anew_in_child() {
  m_lock_count = 0;
  if (!m_initialised) return;
  m_initialised = false;
  initialize();
}

void MEM_CRITICAL_SECTION::destroy() {
  if (!m_initialised) return;
  pthread_mutex_destroy(&m_mutex);
  m_initialised = false;
}

void MEM_CRITICAL_SECTION::lock() {
  if (m_initialised) pthread_mutex_lock(&m_mutex);
  ++m_lock_count;
}

void MEM_CRITICAL_SECTION::unlock() {
  if (m_lock_count == 0) return;
  --m_lock_count;
  if (m_initialised) pthread_mutex_unlock(&m_mutex);
}

void MEM_CRITICAL_SECTION::unlock_all() {
  while (m_lock_count > 0) {
    --m_lock_count;
    pthread_mutex_unlock(&m_mutex);
  }
}
