#include "mem/base/standard_error.h"

#include <sys/uio.h>
#include <unistd.h>

#include "mem/base/host_thread.h"

void mem_say_on_standard_error(std::string_view line) {
  const MEM_ERRNO_KEPT host_errno;
  const MEM_CANCELLATION_HELD not_cancelled;
  char line_end = '\n';
  const iovec pieces[] = {{const_cast<char*>(line.data()), line.size()}, {&line_end, 1}};
  // Nobody is left to tell that this failed.
  [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, pieces, 2);
}
