// A host's operator new and delete, which put a header in front of each block; in an executable, or
// in a library. All other forms come to these.
#include <cstdlib>
#include <new>

constexpr std::size_t header_size = 16;

void* operator new(std::size_t size) {
  void* const block = std::malloc(size + header_size);
  if (block == nullptr) throw std::bad_alloc();
  return static_cast<char*>(block) + header_size;
}

void operator delete(void* block) noexcept {
  if (block != nullptr) std::free(static_cast<char*>(block) - header_size);
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
