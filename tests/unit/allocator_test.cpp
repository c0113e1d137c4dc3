// Fill patterns and the allocation log, on an allocator that has the hook interface.
#include "mem/allocator/allocator_functions.h"

#include <gtest/gtest.h>

#include "include/tuk_mem.h"
#include "mem/settings/tuning.h"
#include "tests/support/stand_in_allocator.h"
#include "tests/support/temporary_directory.h"

namespace {

constexpr std::size_t requested = 20;
constexpr std::size_t given = 32;

std::string released;

void look_at_released_block(const void* block) {
  released.assign(static_cast<const char*>(block), given);
}

// What a block holds when it is new, which is zeros by itself, and when it is released.
std::string filled() {
  auto* block = static_cast<char*>(STAND_IN::allocate(requested));
  const std::string bytes(block, given);
  std::fill_n(block, given, '.');
  ptrfunc_AddDeleteHook(look_at_released_block);
  STAND_IN::release(block);
  ptrfunc_RemoveDeleteHook(look_at_released_block);
  return bytes + released;
}

TEST(FillPattern, FillsNewBlocksAsAskedForAndReleasedOnesWhole) {
  const std::string filled_new = std::string(requested, 'A') + std::string(given - requested, 0);
  const std::string unfilled_new(given, 0);
  const std::string unfilled_release(given, '.');
  mem_set_alloc_pattern(0x100 + 'B');
  mem_set_alloc_pattern(0x100 + 'A');  // the hook is in only once
  mem_set_free_pattern('F');
  EXPECT_EQ(filled(), filled_new + std::string(given, 'F'));
  ptrfunc_GetOwnership = [](const void*) { return 2; };
  EXPECT_EQ(filled(), unfilled_new + unfilled_release);
  EXPECT_EQ(init_tcmalloc_functions(), 0);
  mem_disable_alloc_patterns();
  EXPECT_EQ(filled(), unfilled_new + unfilled_release);
  setenv("mem_alloc_pattern", "66", 1);
  setenv("mem_alloc_pattern_hex", "41", 1);
  mem_read_allocator_aid_settings();
  EXPECT_EQ(filled(), filled_new + unfilled_release);
}

TEST(AllocationLog, HasALinePerEventWhileOnAndIsTruncatedOnlyOnce) {
  const TEMPORARY_DIRECTORY directory;
  write_file("mem_allocations.log", "from an earlier run\n");
  mem_set_print_allocations_callback_enabled(true);
  void* block = STAND_IN::allocate(requested);
  mem_set_print_allocations_callback_enabled(true);
  STAND_IN::release(block);
  mem_set_print_allocations_callback_enabled(false);
  void* unprinted = STAND_IN::allocate(requested);
  mem_set_print_allocations_callback_enabled(true);
  ptrfunc_GetOwnership = [](const void*) { return 2; };
  STAND_IN::release(unprinted);
  std::ostringstream expected;
  expected << "ptr=" << block << ", size=20, type=alloc\n"
           << "ptr=" << block << ", size=32, type=free\n";
  EXPECT_EQ(content_of("mem_allocations.log"), expected.str());
}

}  // namespace
