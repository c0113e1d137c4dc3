#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "include/tuk_mem.h"
#include "mem/base/critical_section.h"
#include "mem/host/settings.h"
#include "platform/err_report.h"
#include "platform/thr_runtime.h"

namespace {

constinit bool mem_internal_error_encountered = false;
constinit bool mem_internal_error_during_internal_error = false;

constexpr std::size_t message_size = 500;

// Unformatted: neither the stream's locale nor its flags, which are the host's, change a text.
void put(const char* text) {
  std::cout.write(text, static_cast<std::streamsize>(std::strlen(text)));
}

void print_nested_error(const char* file, int line, const char* message) {
  char line_text[16];
  std::snprintf(line_text, sizeof line_text, "(%d):", line);
  for (const char* text :
       {"Internal Error: ", file, static_cast<const char*>(line_text), message, "\n"})
    put(text);
  std::cout.flush();
}

[[noreturn]] void end_after_nested_error(const char* file, int line, const char* message) {
  if (mem_internal_error_during_internal_error) std::abort();
  mem_internal_error_during_internal_error = true;
  print_nested_error(file, line, message);
  if (mem_setting_is_on("dont_catch_all_exceptions")) {
    try {
      thr_debug_break();
    } catch (...) {  // the process ends either way
    }
  }
  mem_critical_section.unlock_all();
  std::exit(-1);
}

}  // namespace

void mem_internal_error(const char* file, int line, const char* format, ...) {
  mem_critical_section.lock();
  char message[message_size];
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof message, format, args);
  va_end(args);

  if (mem_internal_error_encountered) end_after_nested_error(file, line, message);
  mem_internal_error_encountered = true;
  // The report may allocate, print or call back into this library: no hold may be left.
  mem_critical_section.unlock_all();
  err_report_fatal_error(message, "MEM", file, line);
  mem_critical_section.unlock();
}
