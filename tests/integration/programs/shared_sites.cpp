// Call sites in a shared library. It links nothing of the library: the allocator is enough.
#include <cstdlib>

extern "C" void* allocate_in_shared_library(std::size_t size) {
  void* volatile block = std::malloc(size);
  return block;
}
