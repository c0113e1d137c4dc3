// A host with an internal-error reporter of its own, which the library has to call.
// Its own `free` searches the next one when it is first called.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "include/tuk_mem.h"
#include "platform/err_report.h"

void err_report_internal_error(const char* condition, const char* module, const char* file,
                               int line) {
  std::printf("caught: %s|%s|%s|%s\n", condition, module, file, line > 0 ? "line" : "no line");
  std::exit(7);
}

extern "C" void free(void* block) noexcept {
  static void (*next)(void*) = nullptr;
  if (next == nullptr) next = reinterpret_cast<void (*)(void*)>(dlsym(RTLD_NEXT, "free"));
  next(block);
}

int main() {
  if (dlerror() != nullptr) return 3;
  mem_set_tbb_exe_string(nullptr);
}
