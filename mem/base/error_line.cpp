#include "mem/base/error_line.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "mem/base/standard_error.h"

namespace {
bool is_control_character(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }
}  // namespace

void mem_say_error_line(char const* format, ...) {
  char line[4600];  // with room for the longest path
  va_list args;
  va_start(args, format);
  const int wanted = std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (wanted < 0) return;
  const auto length = std::min<std::size_t>(static_cast<std::size_t>(wanted), sizeof line - 1);
  std::replace_if(line, line + length, is_control_character, '?');
  mem_say_on_standard_error({line, length});
}
