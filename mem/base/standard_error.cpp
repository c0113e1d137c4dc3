#include "mem/base/standard_error.h"

#include <poll.h>
#include <unistd.h>

#include "mem/base/host_thread.h"
#include "platform/thr_quiet_write.h"

// Without a reader the wait already says so.
void mem_say_on_standard_error(std::string_view line, int longest_wait_ms) {
  const MEM_ERRNO_KEPT host_errno;
  const MEM_CANCELLATION_HELD not_cancelled;
  pollfd descriptor = {STDERR_FILENO, POLLOUT, 0};
  if (poll(&descriptor, 1, longest_wait_ms) != 1 || descriptor.revents != POLLOUT) return;
  char line_end = '\n';
  const iovec pieces[] = {{const_cast<char*>(line.data()), line.size()}, {&line_end, 1}};
  // Nobody is left to tell that this failed.
  thr_quiet_write(STDERR_FILENO, pieces, 2);
}
