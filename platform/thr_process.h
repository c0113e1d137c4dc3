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

/// Starts `command` in `directory`. The command is split at blanks; a backslash takes the next
/// character, a blank or a backslash, as part of the word. The program is searched in PATH; in a
/// process with more rights than its caller (AT_SECURE), in /usr/bin and /bin alone, and with an
/// environment that names nothing else. Hands back the pipes from the child's output and errors
/// and to its input: close-on-exec, at high numbers, of which at most a quarter of what the process
/// may have is taken.
///
/// The host never meets the child: no wait without __WALL or __WCLONE finds it, it sends no
/// SIGCHLD and ends with the host, or when the host executes another program. It has no other
/// descriptor of this process, an empty signal mask, default signal actions, a session of its own
/// and the environment without what would profile it.
///
/// Returns the process, or -1 with all pipes -1. `errno` says then what the system has no room
/// for (EAGAIN, EMFILE, ENFILE, ENOMEM), or why the program can't be run.
PLATFORM_API THR_PROCESS thr_process_create(char const* command, char const* directory,
                                            THR_PIPE* output, THR_PIPE* error, THR_PIPE* input,
                                            int flags);

/// Whether a pipe of thr_process_create still is what it was: a host may close any descriptor, and
/// open its own at the same number. The functions below look first, and leave alone what is not
/// ours; a host thread that does so between the look and the use can't be noticed.
PLATFORM_API bool thr_process_has_pipe(THR_PIPE pipe);

/// Reads what is there, waiting for the first byte. True with the bytes read in `count`, 0 at the
/// end of the stream; false on an error, for a pipe that is lost, or for a length that can't be a
/// buffer's.
PLATFORM_API bool thr_process_read(THR_PIPE pipe, char* buffer, std::size_t length,
                                   std::size_t* count);

/// Writes all of `text`; `count`, when not null, receives the bytes written. False when the
/// reader is gone or the pipe is lost; raises no SIGPIPE.
PLATFORM_API bool thr_process_write(THR_PIPE pipe, char const* text, std::size_t length,
                                    std::size_t* count);

/// Closes a pipe; nothing for -1, or for one that is lost.
PLATFORM_API void thr_process_close_pipe(THR_PIPE pipe);

/// Ends a child, and what it has started itself. Nothing for one that has ended.
PLATFORM_API void thr_process_terminate(THR_PROCESS process, unsigned long how);

/// Waits for a child's end, a second at most. `status`, when not null, becomes 0: how it ended is
/// not to be had. False when there is no such child, or it has not ended; `process` names none
/// afterwards. `flags` must be 0.
PLATFORM_API bool thr_process_wait(THR_PROCESS process, int* status, int flags);

/// In a child made by fork: closes its copies of the pipes of all processes of its parent, which
/// keeps them.
PLATFORM_API void thr_process_let_go_in_child();
