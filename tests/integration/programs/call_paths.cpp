// A program of known call paths, with its own books of them.
#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>
#include <ucontext.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "include/tuk_mem.h"

extern "C" char __executable_start;  // NOLINT(bugprone-reserved-identifier)

namespace {

constexpr int most_levels = 64;
int depth = 64;  // of the paths

// The return addresses of the functions that a thread, or a fiber, is in.
struct SHADOW {
  std::uintptr_t addresses[most_levels];
  int count = 0;
};
thread_local SHADOW own_shadow;
thread_local SHADOW* shadow = nullptr;

class LEVEL {
 public:
  explicit LEVEL(void const* return_address) {
    if (shadow == nullptr) shadow = &own_shadow;
    shadow->addresses[shadow->count++] = reinterpret_cast<std::uintptr_t>(return_address);
  }
  ~LEVEL() { --shadow->count; }
};
#define ENTER const LEVEL level(__builtin_return_address(0))

struct ENTRY {
  std::uintptr_t addresses[most_levels];  // innermost first, 0 behind the last
  long current_bytes, peak_bytes, cumulative_bytes, current_blocks, peak_blocks, cumulative_blocks;
  long temporary;
};
ENTRY books[256];
int entries = 0;
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

ENTRY& entry_here() {
  ENTRY here{};
  for (int level = 0; level < std::min(shadow->count, depth - 1); ++level)
    here.addresses[level] = shadow->addresses[shadow->count - 1 - level];
  ENTRY* const found = std::find_if(books, books + entries, [&](const ENTRY& entry) {
    return std::memcmp(entry.addresses, here.addresses, sizeof here.addresses) == 0;
  });
  if (found == books + entries) books[entries++] = here;
  return *found;
}

[[gnu::noipa]] void* allocate(std::size_t size) {
  ENTER;
  void* const block = std::malloc(size);
  pthread_mutex_lock(&lock);
  ENTRY& entry = entry_here();
  const auto bytes = static_cast<long>(malloc_usable_size(block));
  entry.current_bytes += bytes;
  entry.cumulative_bytes += bytes;
  ++entry.current_blocks;
  ++entry.cumulative_blocks;
  *static_cast<ENTRY**>(block) = &entry;
  pthread_mutex_unlock(&lock);
  return block;
}

[[gnu::noipa]] void release(void* block, bool is_temporary) {
  pthread_mutex_lock(&lock);
  ENTRY& entry = **static_cast<ENTRY**>(block);
  entry.current_bytes -= static_cast<long>(malloc_usable_size(block));
  --entry.current_blocks;
  entry.temporary += is_temporary ? 1 : 0;
  pthread_mutex_unlock(&lock);
  std::free(block);
}

void note_peak() {
  for (ENTRY* entry = books; entry != books + entries; ++entry) {
    entry->peak_bytes = entry->current_bytes;
    entry->peak_blocks = entry->current_blocks;
  }
}

// The highest total so far, which the release records.
[[gnu::noipa]] void make_peak(std::size_t bytes) {
  ENTER;
  void* const large = allocate(bytes);
  note_peak();
  release(large, true);
}

void print_books() {
  for (ENTRY* entry = books; entry != books + entries; ++entry) {
    std::printf("path");
    for (std::uintptr_t const* address = entry->addresses; *address != 0; ++address)
      std::printf("\t%lx", *address - 1 - reinterpret_cast<std::uintptr_t>(&__executable_start));
    std::printf("\t=\t%ld\t%ld\t%ld\t%ld\t%ld\t%ld\t%ld\n", entry->current_bytes, entry->peak_bytes,
                entry->cumulative_bytes, entry->current_blocks, entry->peak_blocks,
                entry->cumulative_blocks, entry->temporary);
  }
}

[[gnu::noipa]] void recurse(int levels) {
  ENTER;
  void* const block = allocate(24);
  if (levels > 0) recurse(levels - 1);
  if (levels % 2 == 0) release(block, levels == 0);
}

[[gnu::always_inline]] inline void* inlined(std::size_t size) { return allocate(size); }

[[gnu::noipa]] void by_inlined_helpers() {
  ENTER;
  inlined(100);
  inlined(200);
}

// Two ways to one line, the same function at two depths of the stack, and frames that change in the
// middle of it.
[[gnu::noipa]] void helper(std::size_t size) {
  ENTER;
  void* const first = allocate(size);
  void* const second = allocate(size);
  release(second, true);
  release(first, false);
  allocate(size);
}
[[gnu::noipa]] void one_way() {
  ENTER;
  helper(50);
}
[[gnu::noipa]] void other_way(int times) {
  ENTER;
  volatile char room[256] = {};
  for (int time = 0; time < times; ++time) {
    helper(60 + room[0]);
    one_way();
  }
}

[[gnu::noipa]] void all_ways() {
  ENTER;
  recurse(20);
  by_inlined_helpers();
  one_way();
  other_way(3);
}

void* thread_work(void*) {
  all_ways();
  return nullptr;
}

ucontext_t of_main, of_fiber;
SHADOW fiber_shadow;

void fiber_work() {
  for (;;) {
    shadow = &fiber_shadow;
    other_way(1);
    shadow = &own_shadow;
    swapcontext(&of_fiber, &of_main);
  }
}

[[gnu::noipa]] void in_fibers() {
  ENTER;
  static char stack[65536];
  getcontext(&of_fiber);
  of_fiber.uc_stack.ss_sp = stack;
  of_fiber.uc_stack.ss_size = sizeof stack;
  makecontext(&of_fiber, fiber_work, 0);
  for (int time = 0; time < 3; ++time) {
    swapcontext(&of_main, &of_fiber);
    one_way();
  }
}

[[gnu::noipa]] void known() {
  ENTER;
  all_ways();
  pthread_t threads[2];
  for (pthread_t& thread : threads) pthread_create(&thread, nullptr, thread_work, nullptr);
  for (pthread_t thread : threads) pthread_join(thread, nullptr);
  in_fibers();
  make_peak(64 << 20);
  one_way();
}

// A flushed peak outlives a lower one, and a reset.
[[gnu::noipa]] void phases(bool resets) {
  ENTER;
  by_inlined_helpers();
  one_way();
  make_peak(64 << 20);
  mem_tbb_tracking_flush_peak();
  other_way(2);
  mem_write_report_snapshot();
  if (resets) {
    mem_reset_tracking_entries();
    for (ENTRY* entry = books; entry != books + entries; ++entry) {
      const ENTRY former = *entry;
      *entry = {};
      std::copy_n(former.addresses, most_levels, entry->addresses);
      entry->peak_bytes = former.peak_bytes;
      entry->peak_blocks = former.peak_blocks;
    }
  }
  for (int time = 0; time < 2; ++time) {
    by_inlined_helpers();
    one_way();
    other_way(1);
    void* const large = allocate(32 << 20);
    release(large, true);
  }
}

[[gnu::noipa]] void in_bins() {
  ENTER;
  std::uint64_t start = 0, end = 0, peak = 0;
  for (const char* name : {"first", "second", "first"}) {
    mem_open_profile_bin(name, "");
    one_way();
    mem_close_profile_bin("", &start, &end, &peak);
  }
  make_peak(64 << 20);
}

void* take_for_plugin(std::size_t size) {
  ENTER;
  return allocate(size);
}

[[gnu::noipa]] void in_plugin() {
  ENTER;
  using TAKE = void* (*)(void* (*)(std::size_t), std::size_t);
  for (const char* frame : {"900", "3000", "900"}) {
    char path[4096];
    std::snprintf(path, sizeof path, "%s/libplugin_%s.so", PLUGINS_DIRECTORY, frame);
    void* const plugin = dlopen(path, RTLD_NOW);
    if (plugin == nullptr) std::abort();
    const auto take = reinterpret_cast<TAKE>(dlsym(plugin, "take_in_plugin"));
    take(take_for_plugin, 1000);
    take(take_for_plugin, 1000);
    dlclose(plugin);
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 3) return 2;
  static char buffer[BUFSIZ];
  std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
  depth = std::atoi(arguments[2]);
  const char* const scenario = arguments[1];
  if (std::strcmp(scenario, "known") == 0) known();
  if (std::strcmp(scenario, "phases") == 0) phases(false);
  if (std::strcmp(scenario, "reset") == 0) phases(true);
  if (std::strcmp(scenario, "in_bins") == 0) in_bins();
  if (std::strcmp(scenario, "in_plugin") == 0) in_plugin();
  print_books();
}
