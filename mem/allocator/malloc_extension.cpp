// The allocator's extension interface, each function found by name on first use.
#include "include/tuk_mem.h"
#include "platform/thr_exported.h"

namespace {

template <class FUNCTION>
FUNCTION find(const char* name) {
  return reinterpret_cast<FUNCTION>(MEM::MALLOC_EXTENSION::DETAIL::find_tcmalloc_function(name));
}

}  // namespace

namespace MEM::MALLOC_EXTENSION {

void* DETAIL::find_tcmalloc_function(const char* name) { return thr_find_exported(name); }

int get_numeric_property(const char* name, std::size_t* value) {
  static const auto function =
      find<int (*)(const char*, std::size_t*)>("MallocExtension_GetNumericProperty");
  return function == nullptr ? -1 : function(name, value);
}

void release_free_memory() {
  static const auto function = find<void (*)()>("MallocExtension_ReleaseFreeMemory");
  if (function != nullptr) function();
}

double get_memory_release_rate() {
  static const auto function = find<double (*)()>("MallocExtension_GetMemoryReleaseRate");
  return function == nullptr ? -1.0 : function();
}

void set_memory_release_rate(double rate) {
  static const auto function = find<void (*)(double)>("MallocExtension_SetMemoryReleaseRate");
  if (function != nullptr) function(rate);
}

void print_message(const std::string& text) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
  mem_msg_vdebug(text.c_str());  // the text is the format, as the header says
#pragma GCC diagnostic pop
}

}  // namespace MEM::MALLOC_EXTENSION
