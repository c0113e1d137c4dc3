// A host with an internal-error reporter of its own, which the library has to call.
#include <cstdio>
#include <cstdlib>

#include "include/tuk_mem.h"
#include "platform/err_report.h"

void err_report_internal_error(const char* condition, const char* module, const char* file,
                               int line) {
  std::printf("caught: %s|%s|%s|%s\n", condition, module, file, line > 0 ? "line" : "no line");
  std::exit(7);
}

int main() { mem_set_tbb_exe_string(nullptr); }
