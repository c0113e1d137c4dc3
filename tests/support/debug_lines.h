// Collecting what the library says on its debug channel.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "include/tuk_mem.h"

inline std::vector<std::string> collected_debug_lines;

/// The debug messages, without a module, that `work` causes. Not for two threads at once.
template <class WORK>
std::vector<std::string> debug_lines_of(WORK work) {
  mem_set_msg_local_vdebug_callback([](const char*, const char* format, va_list args) {
    char text[1024];
    std::vsnprintf(text, sizeof text, format, args);
    collected_debug_lines.emplace_back(text);
    return true;
  });
  work();
  mem_set_msg_local_vdebug_callback(nullptr);
  return std::exchange(collected_debug_lines, {});
}
