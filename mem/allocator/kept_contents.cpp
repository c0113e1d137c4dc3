#include "mem/allocator/kept_contents.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "mem/unwind/stack_walk.h"
#include "platform/thr_exported.h"

namespace {

// The instructions of a function.
struct FUNCTION {
  char const* name;
  std::atomic<std::uintptr_t> begin = 0;
  std::atomic<std::uintptr_t> size = 0;

  bool has(void const* address) const {
    return reinterpret_cast<std::uintptr_t>(address) - begin < size;
  }
};

// By the names that are the allocator's own: a host may have functions in front of it by the usual
// ones. Those of libtuk_mem_malloc.so call no hooks where an allocator has hooks itself.
constinit FUNCTION functions[] = {{"tc_realloc"},
                                  {"tc_calloc"},
                                  {"tuk_mem_malloc_realloc"},
                                  {"tuk_mem_malloc_reallocarray"},
                                  {"tuk_mem_malloc_calloc"}};

void find(FUNCTION& function) {
  void* const begin = thr_find_exported(function.name);
  Dl_info info;
  void* symbol = nullptr;
  if (begin == nullptr || dladdr1(begin, &info, &symbol, RTLD_DL_SYMENT) == 0 || symbol == nullptr)
    return;
  function.begin = reinterpret_cast<std::uintptr_t>(begin);
  function.size = static_cast<const ElfW(Sym)*>(symbol)->st_size;
}

}  // namespace

void mem_find_keeping_functions() {
  std::for_each(std::begin(functions), std::end(functions), find);
}

// The hook was called by the function that calls all hooks, and that by the allocator's own.
bool mem_contents_are_kept(void const* hooks_frame) {
  void const* callers[2];
  if (mem_walk_stack(mem_caller_of(hooks_frame), 0, callers, 2) != 2) return false;
  return std::any_of(std::begin(functions), std::end(functions),
                     [&](const FUNCTION& function) { return function.has(callers[1]); });
}
