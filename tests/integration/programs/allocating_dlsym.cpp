// The C library's dlsym may allocate, the first one of a thread that fails for instance. This one
// always does, and looks at the end whether the first block was kept.
#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

static void* volatile kept = nullptr;

extern "C" void* dlsym(void* handle, const char* name) noexcept {
  void* block = nullptr;
  if (kept == nullptr) {
    kept = std::memcpy(std::calloc(1, 10), "early", 6);
    if (posix_memalign(&block, 64, 100'000) != ENOMEM) abort();  // more than there is so early
  }
  if (posix_memalign(&block, 64, 10) != 0 || (block = std::realloc(block, 50)) == nullptr) abort();
  std::free(block);
  using DLSYM = void* (*)(void*, const char*);
  return reinterpret_cast<DLSYM>(dlvsym(RTLD_NEXT, "dlsym", "GLIBC_2.2.5"))(handle, name);
}

[[gnu::destructor]] static void look() {
  if (malloc_usable_size(kept) != 10) abort();
  kept = std::realloc(kept, 100'000);
  const bool is_whole = std::strcmp(static_cast<char*>(kept), "early") == 0;
  std::free(kept);
  if (is_whole && write(STDOUT_FILENO, "whole\n", 6) < 0) abort();
}
