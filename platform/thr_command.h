// What a command is run with: its program's possible files, its words, its environment.
#pragma once

#include <string_view>

#include "platform/thr_room.h"

struct THR_COMMAND {
  char** files;        ///< where the program may be, to be tried in turn; null last
  char** words;        ///< null last
  char** environment;  ///< null last
};

/// The room that thr_read_command needs for `command`.
std::size_t thr_room_for_command(char const* command);

/// Splits `command` at blanks; a backslash takes the next character as it is. The program is
/// searched in PATH as execvp does. The environment is the host's without what would profile the
/// child. In a process with more rights than its caller (AT_SECURE) the program is searched in the
/// system's directories alone, and the environment names nothing but these. False for no word.
bool thr_read_command(char const* command, THR_ROOM& room, THR_COMMAND& result);

/// Whether a process with this environment, variables that end in zero bytes each, is profiled.
bool thr_environment_profiles(std::string_view environment);
