#include "mem/base/standard_error.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "mem/base/host_thread.h"
#include "platform/thr_quiet_write.h"

namespace {

using CLOCK = std::chrono::steady_clock;
using std::chrono::milliseconds;

// A signal of the host's does not shorten the wait. Without a reader it ends at once.
bool takes_a_line(milliseconds longest_wait) {
  pollfd descriptor = {STDERR_FILENO, POLLOUT, 0};
  const CLOCK::time_point deadline = CLOCK::now() + longest_wait;
  int ready = -1;
  do {
    const auto left = std::chrono::ceil<milliseconds>(deadline - CLOCK::now());
    ready = poll(&descriptor, 1, static_cast<int>(std::max(left, milliseconds(0)).count()));
  } while (ready < 0 && errno == EINTR);
  return ready == 1 && descriptor.revents == POLLOUT;
}

}  // namespace

void mem_say_on_standard_error(std::string_view line, int longest_wait_ms) {
  const MEM_ERRNO_KEPT host_errno;
  const MEM_CANCELLATION_HELD not_cancelled;
  if (!takes_a_line(milliseconds(longest_wait_ms))) return;
  char line_end = '\n';
  const iovec pieces[] = {{const_cast<char*>(line.data()), line.size()}, {&line_end, 1}};
  // Nobody is left to tell that this failed.
  while (thr_quiet_write(STDERR_FILENO, pieces, 2) == -EINTR) {
  }
}
