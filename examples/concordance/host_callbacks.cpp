#include "concordance/host_callbacks.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tuk_mem.h"

namespace {

bool show_debug_message(const char* module, const char* format, va_list args) {
  if (std::getenv("CONCORDANCE_VERBOSE") == nullptr) return false;
  std::fprintf(stderr, "[concordance] %s: ", module);
  std::vfprintf(stderr, format, args);
  std::fputc('\n', stderr);
  return true;
}

std::string module_filename() { return "concordance"; }

}  // namespace

void install_host_callbacks() {
  mem_set_msg_local_vdebug_callback(show_debug_message);
  mem_set_gen_get_module_filename_callback(module_filename);
}
