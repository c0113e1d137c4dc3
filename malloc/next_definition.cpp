#include "malloc/next_definition.h"

#include <dlfcn.h>

#include <cstdint>

constinit MEM_NEXT_DEFINITION mem_next_definitions[std::size(mem_next_names)];

constinit std::atomic<std::uint64_t> mem_attention = MEM_UNRESOLVED;

namespace {

[[gnu::tls_model("initial-exec")]] constinit thread_local bool is_searching = false;

struct MODULE {
  void* begin = nullptr;
  void* end = nullptr;

  explicit MODULE(void* address) {
    dl_find_object found;
    if (_dl_find_object(address, &found) != 0) return;
    begin = found.dlfo_map_start;
    end = found.dlfo_map_end;
  }
  bool has(void* address) const { return begin <= address && address < end; }
};

// An allocator that lacks some functions has those of the C library behind it, with other blocks.
void find(std::size_t index) {
  MEM_NEXT_DEFINITION& next = mem_next_definitions[index];
  next.address = dlsym(RTLD_NEXT, mem_next_names[index]);
  next.is_the_allocators = MODULE(mem_next_definitions[0].address).has(next.address);
}

// dlerror would translate it, with a lock of the C library's that the caller may be holding.
void leave_no_error_behind() { static_cast<void>(dlsym(RTLD_NEXT, mem_next_names[0])); }

// All at once, while the process starts: later the loader may be in the hands of a thread that
// waits for this one. Another thread that comes here meanwhile finds the same.
void search() {
  is_searching = true;
  for (std::size_t index = 0; index < mem_first_hook_name.index; ++index) find(index);
  leave_no_error_behind();
  is_searching = false;
  mem_attention &= ~std::uint64_t{MEM_UNRESOLVED};
}

}  // namespace

bool mem_is_called_by_search_or_searches() {
  if (is_searching) return true;
  search();
  return false;
}

bool mem_next_has_hooks() {
  mem_is_called_by_the_search();
  const MEM_NEXT_DEFINITION& last = mem_next_definitions[std::size(mem_next_names) - 1];
  for (std::size_t index = mem_first_hook_name.index; index < std::size(mem_next_names); ++index) {
    find(index);
    if (mem_next_definitions[index].address == nullptr) break;
  }
  leave_no_error_behind();
  return last.is_the_allocators;
}
