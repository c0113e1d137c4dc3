// Writing that the host does not notice.
#pragma once

#include <sys/uio.h>

/// The system call writev, but the calling thread gets neither SIGPIPE, where nobody reads any
/// more, nor SIGXFSZ, where a file may not become larger. No cancellation point; errno stays.
/// Returns the bytes written or the negative number of the error.
long thr_quiet_write(int descriptor, const iovec* pieces, int count);
