#include "platform/err_report.h"

#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void print_and_abort(const char* kind, const char* text, const char* module,
                                  const char* file, int line) {
  std::fprintf(stderr, "%s: %s: %s (%s:%d)\n", kind, module, text, file, line);
  std::fflush(stderr);
  std::abort();
}

}  // namespace

void err_report_internal_error(const char* condition, const char* module, const char* file,
                               int line) {
  print_and_abort("Internal error", condition, module, file, line);
}

void err_report_fatal_error(const char* message, const char* module, const char* file, int line) {
  print_and_abort("Fatal error", message, module, file, line);
}
