// What starting tools has in common.
#pragma once

#include <cerrno>
#include <string_view>

#include "mem/base/bookkeeping.h"

/// A text as one word of a command: its blanks and backslashes behind backslashes.
inline MEM_BOOKKEEPING_STRING mem_command_word(std::string_view text) {
  MEM_BOOKKEEPING_STRING word;
  for (const char c : text) {
    if (c == ' ' || c == '\\') word.push_back('\\');
    word.push_back(c);
  }
  return word;
}

/// Whether what could not be started now may be later: the system has no room for it.
inline bool mem_is_shortage(int error) {
  return error == EAGAIN || error == EMFILE || error == ENFILE || error == ENOMEM;
}
