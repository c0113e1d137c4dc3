// Keeping signal handlers off a thread.
#pragma once

#include <pthread.h>
#include <signal.h>

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
