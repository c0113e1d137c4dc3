// Fill patterns and the allocation log, on an allocator that has the hook interface.
#include "mem/allocator/allocator_functions.h"

#include <gtest/gtest.h>

#include <atomic>

#include "include/tuk_mem.h"
#include "tests/support/stand_in_allocator.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/threads.h"

namespace {

constexpr std::size_t requested = 20;
constexpr std::size_t given = 32;

std::string released;

void look_at(const void* block) { released.assign(static_cast<const char*>(block), given); }

// What a block holds when it is new, which is zeros by itself, and when it is released.
std::string filled() {
  auto* block = static_cast<char*>(STAND_IN::allocate(requested));
  const std::string bytes(block, given);
  std::fill_n(block, given, '.');
  ptrfunc_AddDeleteHook(look_at);
  STAND_IN::release(block);
  ptrfunc_RemoveDeleteHook(look_at);
  return bytes + released;
}

TEST(FillPattern, FillsNewBlocksAsAskedForAndReleasedOnesWhole) {
  const std::string unfilled = std::string(given, 0) + std::string(given, '.');
  mem_set_alloc_pattern(0x100 + 'A');  // the hook is in only once
  mem_set_free_pattern('F');
  EXPECT_EQ(filled(), std::string(requested, 'A') + std::string(given - requested, 0) +
                          std::string(given, 'F'));
  ptrfunc_GetOwnership = [](const void*) { return 2; };
  EXPECT_EQ(filled(), unfilled) << "a block that is not the allocator's";
}

std::atomic<int> hooks_in_place = 0;

TEST(FillPattern, IsSwitchedByManyThreadsWithNoHookTwice) {
  ptrfunc_AddNewHook = [](MEM_NEW_HOOK) { return ++hooks_in_place; };
  ptrfunc_RemoveNewHook = [](MEM_NEW_HOOK) { return --hooks_in_place; };
  std::atomic<int> wrong = 0;
  start_threads(4, [&](unsigned) {
    for (int i = 0; i < 5000; ++i) {
      mem_set_alloc_pattern(i);
      if (hooks_in_place < 0 || hooks_in_place > 1) ++wrong;
      mem_disable_alloc_patterns();
    }
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(hooks_in_place, 0);
}

// A mapping notified before start-up makes the search the first time.
TEST(TheAllocator, IsSearchedForOnceAndIsMallocsOwn) {
  ptrfunc_AddNewHook = [](MEM_NEW_HOOK) { return 1; };
  const auto in_use = ptrfunc_AddNewHook;
  EXPECT_EQ(init_tcmalloc_functions(), 0);
  EXPECT_EQ(ptrfunc_AddNewHook, in_use);
  EXPECT_TRUE(mem_allocator_is_hooked());
  ptrfunc_GetOwnership = [](const void*) { return 2; };
  EXPECT_FALSE(mem_allocator_is_hooked()) << "malloc is a sanitizer's";
}

TEST(AllocationLog, HasALinePerEventWhileOnAndIsTruncatedOnlyOnce) {
  const TEMPORARY_DIRECTORY directory;
  write_file("mem_allocations.log", "from an earlier run\n");
  mem_set_print_allocations_callback_enabled(true);
  void* block = STAND_IN::allocate(requested);
  mem_set_print_allocations_callback_enabled(true);
  STAND_IN::release(block);
  mem_set_print_allocations_callback_enabled(false);
  STAND_IN::allocate(requested);
  std::ostringstream expected;
  expected << "ptr=" << block << ", size=20, type=alloc\n"
           << "ptr=" << block << ", size=32, type=free\n";
  EXPECT_EQ(content_of("mem_allocations.log"), expected.str());
}

}  // namespace
