// Keeping signal handlers off a thread.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <mutex>

/// No signal handler runs on this thread, for a scope; what arrives meanwhile runs afterwards. For
/// short and rare work: two system calls.
class MEM_SIGNALS_HELD {
 public:
  MEM_SIGNALS_HELD() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &m_former);
  }
  MEM_SIGNALS_HELD(const MEM_SIGNALS_HELD&) = delete;
  MEM_SIGNALS_HELD& operator=(const MEM_SIGNALS_HELD&) = delete;
  ~MEM_SIGNALS_HELD() { pthread_sigmask(SIG_SETMASK, &m_former, nullptr); }

 private:
  sigset_t m_former{};
};

/// Holds a lock for a scope in which no signal handler runs on this thread: one that did not come
/// back, but jumped out, would leave the lock taken for ever.
template <class MUTEX>
class MEM_LOCKED_WITHOUT_SIGNALS {
 public:
  explicit MEM_LOCKED_WITHOUT_SIGNALS(MUTEX& mutex) : m_lock(mutex) {}

 private:
  const MEM_SIGNALS_HELD m_held;
  const std::lock_guard<MUTEX> m_lock;
};
