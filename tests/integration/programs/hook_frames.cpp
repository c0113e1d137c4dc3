// Adds hooks itself. Prints for every function how many frames stand between its hook and this
// program, and how often it and the release of its block called hooks; with an argument, what the
// hooks are told by realloc, what new-handlers are called for, or what is told after another
// library was loaded.
#include <dlfcn.h>
#include <execinfo.h>
#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

#include "tests/integration/programs/books.h"

namespace {

bool is_listening = false;
int given = 0;
int released = 0;
long requested = 0;  // negative: smaller than the block
void* stack[32];
int frames = 0;
volatile std::size_t half = SIZE_MAX / 2 + 1;

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

void say_what_realloc_tells() {
  say_what_realloc_tells(100'000, "moved");
  say_what_realloc_tells(4999, "in place");
  say_what_realloc_tells(PTRDIFF_MAX, "failed");
  void* const block = std::malloc(10);
  listen([&] { std::free(reallocarray(block, half, 2)); });
  std::printf("overflown: %s\n", given == released ? "stays" : "lost");
}

void* volatile last;
sigjmp_buf before_it_failed;

[[gnu::noinline]] void allocate_further_down(int frames_to_go) {
  if (frames_to_go > 0) allocate_further_down(frames_to_go - 1);
  last = std::malloc(10);
  std::free(last);
}

void limit_memory(rlim_t bytes) {
  rlimit limit;
  getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = std::min(bytes, limit.rlim_max);
  setrlimit(RLIMIT_AS, &limit);
}

void say_what_new_handlers_are_called_for() {
  reinterpret_cast<int (*)(int)>(dlsym(RTLD_DEFAULT, "tc_set_new_mode"))(1);
  std::set_new_handler([] {
    std::printf("called\n");
    throw std::bad_alloc();
  });
  void* block = nullptr;
  last = std::malloc(half);
  last = std::calloc(half, 3);
  if (posix_memalign(&block, 3, 10) != EINVAL) std::printf("aligned\n");
  std::printf("for want of memory: ");
  last = std::malloc(PTRDIFF_MAX);

  std::set_new_handler([] { siglongjmp(before_it_failed, 1); });
  if (sigsetjmp(before_it_failed, 1) == 0) last = operator new(PTRDIFF_MAX);
  listen([] { allocate_further_down(99); });
  std::printf("left: %d released, %d given\n", released, given);

  limit_memory(1 << 28);
  std::set_new_handler([] {
    allocate_further_down(0);
    limit_memory(RLIM_INFINITY);
  });
  listen([] { last = operator new[](1 << 30, std::nothrow); });
  std::printf("room made: %d released, %d given, %d frames\n", released, given, frames);
}

// It may be an allocator whose hooks have the same interface, and that does not answer malloc.
void say_what_is_told_after_loading(const char* library) {
  if (dlopen(library, RTLD_NOW) == nullptr) std::printf("%s\n", dlerror());
  listen([] { allocate_further_down(0); });
  std::printf("%d released, %d given\n", released, given);
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

int main(int count, char** words) {
  backtrace(stack, 32);  // allocates the first time
  add("MallocHook_AddNewHook", new_hook);
  add("MallocHook_AddDeleteHook", delete_hook);
  if (const std::string_view word = count > 1 ? words[1] : ""; !word.empty()) {
    if (word == "realloc")
      say_what_realloc_tells();
    else if (word == "new_handler")
      say_what_new_handlers_are_called_for();
    else
      say_what_is_told_after_loading(words[1]);
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
