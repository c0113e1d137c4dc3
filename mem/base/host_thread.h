// Leaving a host's thread as it was found, when the tracker works on it.
#pragma once

#include <fenv.h>
#include <pthread.h>

#include <cerrno>

/// errno is for a scope ours, and then again what it was.
class MEM_ERRNO_KEPT {
 public:
  MEM_ERRNO_KEPT() : m_errno(errno) {}
  MEM_ERRNO_KEPT(const MEM_ERRNO_KEPT&) = delete;
  MEM_ERRNO_KEPT& operator=(const MEM_ERRNO_KEPT&) = delete;
  ~MEM_ERRNO_KEPT() { errno = m_errno; }

 private:
  int m_errno;
};

/// The thread is not cancelled, for a scope. Around what holds cancellation points (files, pipes,
/// messages): a cancellation there would unwind through a hook, and end the process.
class MEM_CANCELLATION_HELD {
 public:
  MEM_CANCELLATION_HELD() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_former); }
  MEM_CANCELLATION_HELD(const MEM_CANCELLATION_HELD&) = delete;
  MEM_CANCELLATION_HELD& operator=(const MEM_CANCELLATION_HELD&) = delete;
  ~MEM_CANCELLATION_HELD() { pthread_setcancelstate(m_former, nullptr); }

 private:
  int m_former = PTHREAD_CANCEL_ENABLE;
};

/// Floating-point arithmetic is for a scope as a program starts with it, whatever the host rounds
/// to or traps, and leaves no flag behind.
class MEM_FLOATING_POINT_KEPT {
 public:
  MEM_FLOATING_POINT_KEPT() {
    feholdexcept(&m_former);
    fesetenv(FE_DFL_ENV);
  }
  MEM_FLOATING_POINT_KEPT(const MEM_FLOATING_POINT_KEPT&) = delete;
  MEM_FLOATING_POINT_KEPT& operator=(const MEM_FLOATING_POINT_KEPT&) = delete;
  ~MEM_FLOATING_POINT_KEPT() { fesetenv(&m_former); }

 private:
  fenv_t m_former{};
};
