#include "platform/thr_quiet_write.h"

#include <signal.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

#include "platform/raw_syscall.h"

namespace {

using SIGNAL_SET = std::uint64_t;

constexpr SIGNAL_SET set_of(int signal) { return SIGNAL_SET{1} << (signal - 1); }

constexpr SIGNAL_SET raised_by_writing = set_of(SIGPIPE) | set_of(SIGXFSZ);

// The kernel raises both on the writing thread, so holding them back there and taking off again
// what came is enough.
class SIGNALS_HELD {
 public:
  SIGNALS_HELD() {
    thr_raw_syscall(SYS_rt_sigprocmask, SIG_BLOCK, &raised_by_writing, &m_former_mask,
                    sizeof m_former_mask);
    if ((m_former_mask & raised_by_writing) != 0)
      thr_raw_syscall(SYS_rt_sigpending, &m_pending_before, sizeof m_pending_before);
  }
  SIGNALS_HELD(const SIGNALS_HELD&) = delete;
  SIGNALS_HELD& operator=(const SIGNALS_HELD&) = delete;
  ~SIGNALS_HELD() {
    thr_raw_syscall(SYS_rt_sigprocmask, SIG_SETMASK, &m_former_mask, nullptr, sizeof m_former_mask);
  }

  // One that was there before is the host's.
  void take_off(int signal) const {
    const SIGNAL_SET came = set_of(signal) & ~m_pending_before;
    const timespec at_once{};
    while (came != 0 &&
           thr_raw_syscall(SYS_rt_sigtimedwait, &came, nullptr, &at_once, sizeof came) == -EINTR) {
    }
  }

 private:
  SIGNAL_SET m_former_mask = 0;
  SIGNAL_SET m_pending_before = 0;
};

}  // namespace

long thr_quiet_write(int descriptor, const iovec* pieces, int count) {
  const SIGNALS_HELD held;
  const long written = thr_raw_syscall(SYS_writev, descriptor, pieces, count);
  if (written == -EPIPE) held.take_off(SIGPIPE);
  if (written == -EFBIG) held.take_off(SIGXFSZ);
  return written;
}
