// The host's child processes and pipes.
#pragma once

#include <cstddef>

#include "export.h"

using THR_PROCESS = long;  ///< positive for a started process
using THR_PIPE = int;      ///< a file descriptor; -1 for none

/// The caller reads the child's standard error; without it that goes to /dev/null and the error
/// pipe handed back is -1.
constexpr int THR_PROCESS_READ_ERRORS = 1;

/// What thr_process_terminate is asked with: end the child now.
constexpr unsigned long THR_PROCESS_TERMINATE = 0x200000000UL;

/// Starts `command`, split at blanks without any quoting, in `directory`; the program is searched
/// in PATH. Hands back the pipes from the child's output and errors and to its input, all closed
/// on exec. The child gets no other descriptor of this process, an empty signal mask, default
/// signal actions, a process group of its own (a terminal's interrupt is not meant for it) and
/// the environment without what would profile it. Returns the process, or -1 when the system has no
/// room for one or for its pipes, which are -1 then. A program that can't be run is a process that
/// ends at once with status 127.
PLATFORM_API THR_PROCESS thr_process_create(char const* command, char const* directory,
                                            THR_PIPE* output, THR_PIPE* error, THR_PIPE* input,
                                            int flags);

/// Reads what is there, waiting for the first byte. True with the bytes read in `count`, 0 at the
/// end of the stream; false on an error or for a length that can't be a buffer's.
PLATFORM_API bool thr_process_read(THR_PIPE pipe, char* buffer, std::size_t length,
                                   std::size_t* count);

/// Writes all of `text`; `count`, when not null, receives the bytes written. False when the
/// reader is gone; raises no SIGPIPE.
PLATFORM_API bool thr_process_write(THR_PIPE pipe, char const* text, std::size_t length,
                                    std::size_t* count);

/// Closes a pipe; nothing for -1.
PLATFORM_API void thr_process_close_pipe(THR_PIPE pipe);

/// Asks a child to end. Nothing for a process that is no running child of this one.
PLATFORM_API void thr_process_terminate(THR_PROCESS process, unsigned long how);

/// Waits for a child's end and reaps it; `status`, when not null, receives its wait status. False
/// when it is no child of this process (any more). `flags` must be 0.
PLATFORM_API bool thr_process_wait(THR_PROCESS process, int* status, int flags);
