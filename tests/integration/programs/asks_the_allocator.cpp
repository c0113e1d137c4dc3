// Uses the controls of the allocator, prints the answers one a line, then loads the allocator named
// on the command line, if any, and asks again.
#include <dlfcn.h>

#include <cstdio>
#include <new>

#include "include/tuk_mem.h"

namespace {

constexpr std::size_t block_size = 50'000'000;

void* volatile used;  // keeps the compiler from leaving the block out

void ask() {
  constexpr char property[] = "generic.current_allocated_bytes";
  std::size_t before = 1;
  const int answer = MEM::MALLOC_EXTENSION::get_numeric_property(property, &before);
  void* const block = ::operator new(block_size);
  used = block;
  std::size_t after = 1;
  MEM::MALLOC_EXTENSION::get_numeric_property(property, &after);
  ::operator delete(block);
  constexpr char free_property[] = "tcmalloc.pageheap_free_bytes";
  std::size_t free_before = 1;
  MEM::MALLOC_EXTENSION::get_numeric_property(free_property, &free_before);
  MEM::MALLOC_EXTENSION::release_free_memory();
  std::size_t free_after = 1;
  MEM::MALLOC_EXTENSION::get_numeric_property(free_property, &free_after);
  MEM::MALLOC_EXTENSION::set_memory_release_rate(5.0);
  std::printf("known %d\ngrown %zu\nreleased %d\nrate %g\n", answer, after - before,
              free_before - free_after >= block_size,
              MEM::MALLOC_EXTENSION::get_memory_release_rate());
}

bool is_there() {
  return MEM::MALLOC_EXTENSION::DETAIL::find_tcmalloc_function(
             "MallocExtension_GetNumericProperty") != nullptr;
}

}  // namespace

int main(int count, char** words) {
  ask();
  std::printf("there %d\n", is_there());
  if (count < 2) return 0;
  if (dlopen(words[1], RTLD_NOW | RTLD_GLOBAL) == nullptr) {
    std::puts(dlerror());
    return 1;
  }
  std::printf("there %d\n", is_there());
  ask();
  return 0;
}
