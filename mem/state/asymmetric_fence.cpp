#include "mem/state/asymmetric_fence.h"

#include <linux/membarrier.h>
#include <time.h>

#include <cerrno>

#include "platform/raw_syscall.h"

constinit std::atomic<bool> mem_light_fences = false;

namespace {

constinit std::atomic<bool> were_light = false;

bool ask_kernel(int command) { return thr_raw_syscall(SYS_membarrier, command, 0, 0) == 0; }

// A store leaves its processor within a microsecond, a change of threads included. The host's
// signals don't cut the wait, and a filter that forbids to sleep doesn't either.
void wait_for_stores() {
  timespec left = {.tv_sec = 0, .tv_nsec = 1'000'000};
  long answer = -EINTR;
  while (answer == -EINTR) answer = thr_raw_syscall(SYS_nanosleep, &left, &left);
  if (answer == 0) return;
  constexpr int spins_of_a_millisecond = 100'000;
  for (int spin = 0; spin < spins_of_a_millisecond; ++spin) __builtin_ia32_pause();
}

}  // namespace

void mem_prepare_light_fences() {
#ifndef __SANITIZE_THREAD__  // which knows nothing of the kernel's fences
  if (!ask_kernel(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED)) return;
  mem_light_fences = were_light = ask_kernel(MEMBARRIER_CMD_PRIVATE_EXPEDITED);
#endif
}

// A thread may have taken the light way just before it was over, and be on it for long.
void mem_heavy_fence() {
  if (mem_light_fences) {
    if (ask_kernel(MEMBARRIER_CMD_PRIVATE_EXPEDITED)) return;
    mem_light_fences = false;
  }
  if (were_light) wait_for_stores();
}
