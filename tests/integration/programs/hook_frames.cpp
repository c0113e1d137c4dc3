// Adds hooks itself. Prints for every function how many frames stand between its hook and this
// program, and how often it and the release of its block called hooks; with an argument, what the
// hooks are told by realloc.
#include <dlfcn.h>
#include <execinfo.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

#include "tests/integration/programs/books.h"

namespace {

bool is_listening = false;
int given = 0;
int released = 0;
long requested = 0;  // negative: smaller than the block
void* stack[32];
int frames = 0;

bool is_foreign(void* address) {
  Dl_info here;
  Dl_info there;
  dladdr(reinterpret_cast<void*>(is_foreign), &here);
  return dladdr(address, &there) == 0 || there.dli_fbase != here.dli_fbase;
}

void new_hook(const void* block, std::size_t size) {
  if (!std::exchange(is_listening, false)) return;
  void** const end = stack + backtrace(stack, 32);
  frames = static_cast<int>(std::find_if_not(stack + 1, end, is_foreign) - stack) - 1;
  requested = malloc_usable_size(const_cast<void*>(block)) < size ? -1 : static_cast<long>(size);
  ++given;
  is_listening = true;
}

void delete_hook(const void* /*block*/) { released += is_listening ? 1 : 0; }

template <class HOOK>
void add(const char* function, HOOK* hook) {
  reinterpret_cast<int (*)(HOOK*)>(dlsym(RTLD_DEFAULT, function))(hook);
}

template <class CALL>
void listen(CALL call) {
  given = released = 0;
  is_listening = true;
  call();
  is_listening = false;
}

void say_what_realloc_tells(std::size_t size, const char* how) {
  void* volatile block = std::malloc(5000);
  const std::size_t all = malloc_usable_size(block);
  void* moved = nullptr;
  listen([&] { moved = std::realloc(block, size); });
  std::printf("%s: %d released, %d given, %s\n", how, released, given,
              requested == static_cast<long>(moved == nullptr ? all : size) ? "right" : "wrong");
  std::free(moved == nullptr ? block : moved);
}

}  // namespace

#define ROW(allocate, release)                                          \
  {                                                                     \
    void* volatile block = nullptr;                                     \
    listen([&] { block = allocate; });                                  \
    std::printf("%s: %d frames,", #allocate, frames);                   \
    const int news = given - (requested < 0 ? 100 : 0);                 \
    listen([&] { release; });                                           \
    std::printf(" hooks called %d %d\n", news, released + 100 * given); \
  }

int main(int count, char** /*words*/) {
  backtrace(stack, 32);  // allocates the first time
  add("MallocHook_AddNewHook", new_hook);
  add("MallocHook_AddDeleteHook", delete_hook);
  if (count > 1) {
    say_what_realloc_tells(100'000, "moved");
    say_what_realloc_tells(4999, "in place");
    say_what_realloc_tells(PTRDIFF_MAX, "failed");
    return 0;
  }
  constexpr std::align_val_t aligned{64};
  void* given_by_posix = nullptr;
  ROW(std::malloc(10), std::free(block))
  ROW(std::calloc(3, 10), std::free(block))
  ROW(std::realloc(nullptr, 10), std::free(block))
  ROW(reallocarray(nullptr, 3, 10), std::free(block))
  ROW(memalign(64, 10), std::free(block))
  ROW(std::aligned_alloc(64, 64), std::free(block))
  ROW(valloc(10), std::free(block))
  if (!is_preloaded("jemalloc")) ROW(pvalloc(10), std::free(block))
  ROW((posix_memalign(&given_by_posix, 64, 10), given_by_posix), std::free(block))
  ROW(operator new(10), operator delete(block))
  ROW(operator new[](10), operator delete[](block))
  ROW(operator new(10, std::nothrow), operator delete(block, std::nothrow))
  ROW(operator new[](10, std::nothrow), operator delete[](block, std::nothrow))
  ROW(operator new(10, aligned), operator delete(block, aligned))
  ROW(operator new[](10, aligned), operator delete[](block, aligned))
  ROW(operator new(10, aligned, std::nothrow), operator delete(block, aligned, std::nothrow))
  ROW(operator new[](10, aligned, std::nothrow), operator delete[](block, aligned, std::nothrow))
  ROW(operator new(20), operator delete(block, 20))
  ROW(operator new[](20), operator delete[](block, 20))
  ROW(operator new(20, aligned), operator delete(block, 20, aligned))
  ROW(operator new[](20, aligned), operator delete[](block, 20, aligned))
}
