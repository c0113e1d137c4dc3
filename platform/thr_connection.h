// A stream socket to another process: one that serves only this one, or one that is there already.
#pragma once

#include <sys/types.h>

#include <cstddef>

#include "platform/thr_hidden_child.h"

/// One descriptor of this process, which is known as those of pipes are: high, closed on exec, and
/// looked at before each use.
struct THR_CONNECTION {
  int socket = -1;
  THR_KEEPER keeper{};
};

/// Starts `command`, which is split and searched as by thr_process_create, with the other end of a
/// new socket as its standard input; its output and errors go to /dev/null. The host never meets
/// it. It has to end when the socket is hung up. 0, or the error's number: that of the system when
/// it has no room (EAGAIN, EMFILE, ENFILE, ENOMEM), or why the program can't be run.
int thr_connect_to_program(char const* command, THR_CONNECTION& connection);

/// Connects to the socket at `path`, of a process of this effective user, in a directory that only
/// the user may enter. 0, or the error's number: EACCES for another's directory, EPERM for another
/// user's process, ENAMETOOLONG for no path of a socket, ETIMEDOUT where too many want to connect
/// for a second, or that of the system.
int thr_connect_to_socket(char const* path, THR_CONNECTION& connection);

/// Sends and receives what can be done at once: the number of bytes, or the negative number of the
/// error, EAGAIN among them, and EBADF where the host has taken the descriptor. No signal is
/// raised. With `descriptor`, a copy of that goes along; what comes along with others' bytes is
/// dropped.
long thr_send(int socket, void const* bytes, std::size_t size, int descriptor = -1);
long thr_receive(int socket, void* bytes, std::size_t size);

/// Hangs up at once, whoever has copies of the socket. The descriptor stays.
void thr_hang_up(int socket);

/// Closes the socket, and takes leave of the keeper of the program behind it, if one stays.
void thr_disconnect(THR_CONNECTION& connection);
