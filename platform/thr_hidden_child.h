// Starting a program that the host's own waiting never finds.
#pragma once

#include <sys/types.h>

#include "platform/thr_command.h"
#include "platform/thr_room.h"

/// What the program is started with. Descriptors are this process's.
struct THR_START {
  THR_COMMAND command{};
  char const* directory = nullptr;
  int input = -1;      ///< its standard input
  int output = -1;     ///< its standard output; /dev/null for -1
  int errors = -1;     ///< its standard error; /dev/null for -1
  int life_line = -1;  ///< read end of a pipe; the program is killed when it closes or is written;
                       ///< -1 for one that ends by itself when its input, a socket, is hung up
};

/// The process that stays as the program's parent, and the mapping that it runs in.
struct THR_KEEPER {
  pid_t process = 0;  ///< 0 when none stays
  THR_ROOM::LEFT room{};
};

/// The room that thr_start_hidden_child takes beside the command's.
constexpr std::size_t thr_room_for_start = std::size_t{96} * 1024;

/// Starts the program. 0, or the error's number: that of the system when it has no room for a
/// process, that of execve when the program can't be run.
///
/// The host never meets it: it is no child of the host, or the child of a keeper, which is one that
/// a wait without __WALL or __WCLONE passes over and that sends no SIGCHLD. A debugger is told of
/// neither. The program has no descriptor but its three and the life line, runs no handler, has no
/// blocked signal and leads a session of its own. The kernel kills it, and everything in its
/// process group, when the life line closes: at the host's end, and when the host executes another
/// program.
int thr_start_hidden_child(const THR_START& start, THR_ROOM& room, THR_KEEPER& keeper);

/// Waits, a second at most, until nobody has the other end of a pipe or socket any more: until the
/// program, what it has started and its keeper have ended.
bool thr_await_hang_up(int descriptor);

/// Takes the keeper's end off the kernel's list and frees its room, waiting a second at most: it
/// ends with its program, and its memory stays where it is while it has not. Nothing to do where
/// none stays.
bool thr_reap_keeper(const THR_KEEPER& keeper);
